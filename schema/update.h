// The command line of the bootstrapper:
//
//   [--target 'platform'] [--temp-cache 'directory'] [--skip-platform] [--lock-latest]
//   'version info'
//
// Each option is accepted at most once and only in this order. The last argument is the path of the
// version info document, even if it looks like an option.
//
// The names follow the scheme in schema/version_info.h. The schema is `update`.
#pragma once

#include <cstdint>

// An option without a value.
struct image___update___flag_t {
  uint32_t present;  // 1 if given, otherwise 0
  char assigned;     // '%' once the parser has set the flag; not used
};

// An option with a value.
struct image___update___text_option_t {
  uint32_t present;   // 1 if given, otherwise 0
  const char* value;  // undefined unless present
  char assigned;      // '%' once the parser has assigned the value; not used
};

// A required argument.
struct image___update___text_t {
  const char* value;  // the argument
  char assigned;      // '%' once the parser has assigned the value; not used
};

// The parsed command line. Values point into the argument vector, which must outlive the record.
struct image___update___root_t {
  image___update___flag_t lock_latest;        // --lock-latest
  image___update___flag_t skip_platform;      // --skip-platform
  image___update___text_option_t target;      // --target 'platform'
  image___update___text_option_t temp_cache;  // --temp-cache 'directory'
  image___update___text_t version_info;       // the path of the document
};

// A cursor over the argument vector.
struct image___update___arguments_t {
  const char* const* arguments;  // the argv of main
  uint64_t length;               // the number of arguments
  uint64_t index;                // the index of the next unread argument
};

// Fills `root` from the arguments of main. If the only argument is "--help", prints the usage text
// and exits with status 0. If the arguments are wrong, prints an error to standard error and exits
// with status 1.
void image___update___do_parse(int argc, const char* const* argv, image___update___root_t* root);

// Prints the usage text to standard error.
void image___update___do_document();

// Returns the number of unread arguments.
uint64_t image___update___arguments_size(const image___update___arguments_t* cursor);

// Return the next argument, which must exist: no bound is checked. `consume` also advances the
// cursor.
const char* image___update___arguments_peek(const image___update___arguments_t* cursor);
const char* image___update___arguments_consume(image___update___arguments_t* cursor);

// Prints to standard error: `message`, the whole command line, a caret under the argument at the
// cursor, and the usage text. Does not exit.
void image___update___report_error(const image___update___arguments_t* cursor, const char* message);
