#include "schema/update.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/c_string.h"

using arguments_t = image___update___arguments_t;

static constexpr char kAssigned = '%';

namespace {

struct UsageLine {
  const char* label;
  const char* kind;
  const char* meaning;
};

}  // namespace

[[noreturn]] static void exit_with_report(const arguments_t* cursor, const char* message) {
  image___update___report_error(cursor, message);
  std::exit(1);
}

static bool at_end(const arguments_t* cursor) {
  return image___update___arguments_size(cursor) == 0;
}

// Consumes the next argument if it is `word`, and returns whether it was. There must be one.
static bool accept(arguments_t* cursor, const char* word) {
  if (!equal(image___update___arguments_peek(cursor), word)) {
    return false;
  }
  image___update___arguments_consume(cursor);
  return true;
}

static void parse_text_option(arguments_t* cursor, const char* word, const char* missing,
                              image___update___text_option_t* option) {
  if (!accept(cursor, word)) {
    return;
  }
  option->present = 1;
  option->assigned = kAssigned;
  if (at_end(cursor)) {
    exit_with_report(cursor, missing);
  }
  option->value = image___update___arguments_consume(cursor);
}

static void parse_flag(arguments_t* cursor, const char* word, image___update___flag_t* flag) {
  if (accept(cursor, word)) {
    flag->present = 1;
    flag->assigned = kAssigned;
  }
}

static void exit_if_at_end(const arguments_t* cursor) {
  if (at_end(cursor)) {
    exit_with_report(cursor,
                     "path 'version info' requires an argument, but no argument is available");
  }
}

void image___update___do_parse(int argc, const char* const* argv, image___update___root_t* root) {
  if (argc <= 0) {
    static constexpr char kMessage[] =
        "unable to parse arguments: no arguments provided to parse\n";
    std::fwrite(kMessage, 1, sizeof(kMessage) - 1, stderr);
    std::exit(1);
  }
  if (argc == 2 && equal(argv[1], "--help")) {
    image___update___do_document();
    std::exit(0);
  }
  root->lock_latest.present = 0;
  root->skip_platform.present = 0;
  root->target.present = 0;
  root->temp_cache.present = 0;
  arguments_t cursor{.arguments = argv, .length = static_cast<uint64_t>(argc), .index = 1};
  exit_if_at_end(&cursor);
  parse_text_option(&cursor, "--target",
                    "text 'platform' requires an argument, but no argument is available",
                    &root->target);
  exit_if_at_end(&cursor);
  parse_text_option(&cursor, "--temp-cache",
                    "path 'directory' requires an argument, but no argument is available",
                    &root->temp_cache);
  exit_if_at_end(&cursor);
  parse_flag(&cursor, "--skip-platform", &root->skip_platform);
  exit_if_at_end(&cursor);
  parse_flag(&cursor, "--lock-latest", &root->lock_latest);
  exit_if_at_end(&cursor);
  root->version_info = {.value = image___update___arguments_consume(&cursor),
                        .assigned = kAssigned};
  if (!at_end(&cursor)) {
    exit_with_report(&cursor, "superfluous command line argument(s)");
  }
}

void image___update___do_document() {
  static constexpr UsageLine kLines[] = {
      {"   --target", "option", "bootstrap specific platform"},
      {"      platform", "text", "platform name"},
      {"   --temp-cache", "option", "flag to control storage location"},
      {"      directory", "directory-path",
       "directory to store downloaded files in, it is removed if empty on success"},
      {"   --skip-platform", "option", "flag to skip platform download"},
      {"   --lock-latest", "option", "flag to control locking behavior"},
      {"   version info", "file-path", "binary version info"},
  };
  std::fputs(
      "\x1b[1musage:\x1b[0m  [--target 'platform'] [--temp-cache 'directory'] [--skip-platform] "
      "[--lock-latest] 'version info'\n",
      stderr);
  for (const UsageLine& line : kLines) {
    std::fprintf(stderr, "%-25s-> \x1b[1m%s\x1b[0m %s\n", line.label, line.kind, line.meaning);
  }
}

uint64_t image___update___arguments_size(const arguments_t* cursor) {
  return cursor->length - cursor->index;
}

const char* image___update___arguments_peek(const arguments_t* cursor) {
  return cursor->arguments[cursor->index];
}

const char* image___update___arguments_consume(arguments_t* cursor) {
  return cursor->arguments[cursor->index++];
}

void image___update___report_error(const arguments_t* cursor, const char* message) {
  std::fprintf(stderr, "unable to parse arguments: %s\n\n", message);
  uint64_t caret = 1;
  for (uint64_t i = 0; i < cursor->length; ++i) {
    std::fprintf(stderr, " %s", cursor->arguments[i]);
    if (i < cursor->index) {
      caret += std::strlen(cursor->arguments[i]) + 1;
    }
  }
  std::fprintf(stderr, "\n%*s^\n\n", static_cast<int>(caret), "");
  image___update___do_document();
}
