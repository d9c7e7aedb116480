// The command line of the bootstrapper:
//
//   [--target 'platform'] [--temp-cache 'directory'] [--skip-platform] [--lock-latest]
//   'version info'
//
// Each option is accepted at most once and only in this order. The last word is the path of the
// version info document, whatever it looks like.
//
// The names are those of generated code, as schema/version_info.h explains; the schema is `update`.
#pragma once

#include <cstdint>

// An option without a value.
struct image___update___flag_t {
  uint32_t present;  // 1: given, 0: not
  char assigned;     // '%' once the parser has set the flag; nothing reads it
};

// An option with a value.
struct image___update___text_option_t {
  uint32_t present;   // 1: given, 0: not
  const char* value;  // means something only if the option is given
  char assigned;      // '%' once the parser has assigned the value; nothing reads it
};

// A word that must be there.
struct image___update___text_t {
  const char* value;  // the word
  char assigned;      // '%' once the parser has assigned the value; nothing reads it
};

// The parsed words. Values point into the argument vector, which must outlive the record.
struct image___update___root_t {
  image___update___flag_t lock_latest;        // --lock-latest
  image___update___flag_t skip_platform;      // --skip-platform
  image___update___text_option_t target;      // --target 'platform'
  image___update___text_option_t temp_cache;  // --temp-cache 'directory'
  image___update___text_t version_info;       // the path of the document
};

// A cursor over the argument vector.
struct image___update___arguments_t {
  const char* const* arguments;  // as main receives them
  uint64_t length;               // how many there are
  uint64_t index;                // of the next unread one
};

// Fills `root` from the vector that main receives. When the only word is "--help", prints the usage
// text and exits with status 0. When the words are wrong, reports the error on standard error and
// exits with status 1.
void image___update___do_parse(int argc, const char* const* argv, image___update___root_t* root);

// Prints the usage text to standard error.
void image___update___do_document();

// Returns the number of unread arguments.
uint64_t image___update___arguments_size(const image___update___arguments_t* cursor);

// Both return the next argument, which must exist; no bound is checked. `consume` moves on to the
// one after it.
const char* image___update___arguments_peek(const image___update___arguments_t* cursor);
const char* image___update___arguments_consume(image___update___arguments_t* cursor);

// Prints to standard error: `message`, the whole command line, a caret under the argument at the
// cursor, and the usage text. Returns.
void image___update___report_error(const image___update___arguments_t* cursor, const char* message);
