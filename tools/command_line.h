// What the companion programs share: reading their words, and saying what went wrong.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// Each program defines its own.
extern const char kProgram[];  // its name
extern const char kUsage[];    // what --help prints

// Says what is wrong with the command line on standard error and exits with status 1.
[[noreturn]] void fail_usage(const std::string& message);

// Throws Error "what: why".
[[noreturn]] void fail_on(const std::string& what, const std::string& why);

// Flushes standard output, which reports a failure to write at the latest then. Throws Error.
void finish_standard_output();

// Prints what --help and --version ask for and exits; returns for any other word.
void answer(std::string_view word);

// An option with a value, given as `-n VALUE`, `--name VALUE` or `--name=VALUE`, or a flag without
// one. It goes where one of the two pointers leads.
struct Option {
  std::string_view name;
  const char** value = nullptr;
  bool* flag = nullptr;
  const char* needs = "";  // what the value is, for the message that it is missing
};

// The words from argv[first] on that are neither options nor their values. Anything wrong with an
// option is a usage failure, and so is one with a value that is given twice; --help and --version
// are answered; after "--" every word is taken as it is.
std::vector<const char*> parse_words(int argc, char** argv, int first,
                                     const std::vector<Option>& options);

// Runs a program's body and returns its exit status: an Error is printed and makes it 1.
int run_program(void (*body)(int argc, char** argv), int argc, char** argv);
