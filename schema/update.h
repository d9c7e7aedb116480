// The command line of the bootstrapper:
//
//   [--target 'platform'] [--temp-cache 'directory'] [--skip-platform] [--lock-latest]
//   'version info'
//
// Strictly positional: each option at most once and only in this order; the last word is the path
// of the version info document, whatever it looks like.
#pragma once

#include <cstdint>

// The parsed words. Values point into the argument vector, which must outlive the record, and mean
// something only where the presence flag is 1. `assigned` is set to '%' when the parser gives a
// member its value or sets its flag; it is never read.
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

// A cursor over the argument vector; `index` is the next unread argument.
struct image___update___arguments_t {
  const char* const* arguments;
  uint64_t length;
  uint64_t index;
};

// Fills `root` from the vector that main receives, or ends the process: after the usage text with
// status 0 for exactly "--help", after an error report on standard error with status 1.
void image___update___do_parse(int argc, const char* const* argv, image___update___root_t* root);

// Prints the usage text to standard error.
void image___update___do_document();

// The number of unread arguments; the next one; the next one, moving on. None checks a bound.
uint64_t image___update___arguments_size(const image___update___arguments_t* cursor);
const char* image___update___arguments_peek(const image___update___arguments_t* cursor);
const char* image___update___arguments_consume(image___update___arguments_t* cursor);

// Prints `message`, the whole command line with a caret under the argument at the cursor, and the
// usage text to standard error.
void image___update___report_error(const image___update___arguments_t* cursor, const char* message);
