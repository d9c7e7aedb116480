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

// The parsed words. `present` is 1 for an option that was given and 0 otherwise; only then does
// `value` mean anything. Values point into the argument vector, which must outlive the record.
// `assigned` becomes '%' when the parser assigns the member's value or sets its flag; nothing reads
// it.
struct image___update___flag_t {
  uint32_t present;
  char assigned;
};

struct image___update___text_option_t {
  uint32_t present;
  const char* value;
  char assigned;
};

struct image___update___text_t {
  const char* value;
  char assigned;
};

struct image___update___root_t {
  image___update___flag_t lock_latest;
  image___update___flag_t skip_platform;
  image___update___text_option_t target;
  image___update___text_option_t temp_cache;
  image___update___text_t version_info;
};

// A cursor over the argument vector. `index` is that of the next unread argument.
struct image___update___arguments_t {
  const char* const* arguments;
  uint64_t length;
  uint64_t index;
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
