#include "tools/command_line.h"

#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "core/error.h"
#include "core/version.h"
#include "process/standard_descriptors.h"
#include "tools/failure.h"

namespace runenv {

namespace {

struct UsageError : Error {
  using Error::Error;
};

}  // namespace

static const Program* running;

int run_program(const Program& program, int argc, char** argv) {
  running = &program;
  open_standard_descriptors();
  std::signal(SIGXFSZ, SIG_IGN);  // a write beyond the limit on the size of files fails instead
  try {
    program.body(argc, argv);
  } catch (const UsageError& error) {
    std::fprintf(stderr, "%s: %s\nTry '%s --help'.\n", program.name, error.message, program.name);
    return program.failure_status;
  } catch (const Error& error) {
    std::fprintf(stderr, "%s: %s\n", program.name, error.message);
    return program.failure_status;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", program.name, error.what());
    return program.failure_status;
  }
  return 0;
}

const char* program_name() {
  return running->name;
}

void throw_usage(const std::string& message) {
  throw UsageError(Error::Type::Failure, message.c_str());
}

void exit_on_help(std::string_view word) {
  if (word == "--help") {
    std::fputs(running->usage, stdout);
  } else if (word == "--version") {
    std::printf("%s %s\n%s", running->name, RUNENV_VERSION, running->about_version);
  } else {
    return;
  }
  finish_standard_output();
  std::exit(0);
}

void finish_standard_output() {
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    throw_errno_of("standard output");
  }
}

static const Option& find_option(const std::vector<Option>& options, std::string_view word) {
  const bool joined = word.starts_with("--");
  const std::string_view name = joined ? word.substr(0, word.find('=')) : word;
  for (const Option& option : options) {
    if (option.name == (option.flag != nullptr ? word : name)) {
      return option;
    }
  }
  throw_usage("unknown option '" + std::string(word) + "'");
}

// Sets the option at argv[i] and returns the index of its last word.
static int take_option(const Option& option, int argc, char** argv, int i) {
  if (option.flag != nullptr) {
    *option.flag = true;
    return i;
  }
  const std::string name(option.name);
  if (*option.value != nullptr) {
    throw_usage("option '" + name + "' is given twice");
  }
  const char* const equals = argv[i] + name.size();
  *option.value = *equals == '=' ? equals + 1 : i + 1 < argc ? argv[++i] : "";
  if (**option.value == '\0') {
    throw_usage("option '" + name + "' needs " + option.needs);
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
      exit_on_help(word);
      i = take_option(find_option(options, word), argc, argv, i);
    }
  }
  return words;
}

unsigned parse_number(const char* text, const char* option) {
  unsigned result = 0;
  const char* const end = text + std::strlen(text);
  const auto [rest, error] = std::from_chars(text, end, result);
  if (error != std::errc() || rest != end) {
    throw_usage(std::string("option '") + option + "' needs a number, not '" + text + "'");
  }
  return result;
}

bool attempt(const std::function<void()>& step) {
  try {
    step();
    return true;
  } catch (const Error& error) {
    std::fflush(stdout);
    std::fprintf(stderr, "%s: %s\n", program_name(), error.message);
    return false;
  }
}

}  // namespace runenv
