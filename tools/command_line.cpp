#include "tools/command_line.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/error.h"
#include "core/failure.h"
#include "process/standard_descriptors.h"

void fail_usage(const std::string& message) {
  std::fprintf(stderr, "%s: %s\nTry '%s --help'.\n", kProgram, message.c_str(), kProgram);
  std::exit(1);
}

void fail_on(const std::string& what, const std::string& why) {
  runenv::throw_failure(what + ": " + why);
}

void finish_standard_output() {
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    fail_on("standard output", std::strerror(errno));
  }
}

void answer(std::string_view word) {
  if (word == "--help") {
    std::fputs(kUsage, stdout);
  } else if (word == "--version") {
    std::printf("%s %s\n", kProgram, RUNENV_VERSION);
  } else {
    return;
  }
  finish_standard_output();
  std::exit(0);
}

static const Option& find_option(const std::vector<Option>& options, std::string_view word) {
  const bool joined = word.starts_with("--");
  const std::string_view name = joined ? word.substr(0, word.find('=')) : word;
  for (const Option& option : options) {
    if (option.name == (option.flag != nullptr ? word : name)) {
      return option;
    }
  }
  fail_usage("unknown option '" + std::string(word) + "'");
}

// Sets the option at argv[i] and returns the index of its last word.
static int take_option(const Option& option, int argc, char** argv, int i) {
  if (option.flag != nullptr) {
    *option.flag = true;
    return i;
  }
  const std::string name(option.name);
  if (*option.value != nullptr) {
    fail_usage("option '" + name + "' is given twice");
  }
  const char* const equals = argv[i] + name.size();
  *option.value = *equals == '=' ? equals + 1 : i + 1 < argc ? argv[++i] : "";
  if (**option.value == '\0') {
    fail_usage("option '" + name + "' needs " + option.needs);
  }
  return i;
}

std::vector<const char*> parse_words(int argc, char** argv, int first,
                                     const std::vector<Option>& options) {
  std::vector<const char*> words;
  bool taking_options = true;
  for (int i = first; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (!taking_options || !word.starts_with('-')) {
      words.push_back(argv[i]);
    } else if (word == "--") {
      taking_options = false;
    } else {
      answer(word);
      i = take_option(find_option(options, word), argc, argv, i);
    }
  }
  return words;
}

int run_program(void (*body)(int argc, char** argv), int argc, char** argv) {
  runenv::open_standard_descriptors();
  std::signal(SIGXFSZ, SIG_IGN);  // a write beyond the limit on the size of files fails instead
  try {
    body(argc, argv);
  } catch (const Error& error) {
    std::fprintf(stderr, "%s: %s\n", kProgram, error.message);
    return 1;
  }
  return 0;
}
