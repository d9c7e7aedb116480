// A companion program: its name, its --help, its arguments, and its exit status.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace runenv {

struct Program {
  const char* name;
  const char* usage;  // what --help prints
  void (*body)(int argc, char** argv);
  const char* about_version = "";  // what --version prints after the version, with a line end
  int failure_status = 1;
};

// Runs the body of the program and returns the exit status. If the body throws Error, prints its
// message on standard error and returns failure_status. A program calls this once, from main.
int run_program(const Program& program, int argc, char** argv);

// Returns the name of the program that run_program runs.
const char* program_name();

// Throws an Error about the command line. After its message, run_program prints a hint at --help.
[[noreturn]] void throw_usage(const std::string& message);

// Prints what --help or --version asks for and ends the program. Returns for any other word.
void exit_on_help(std::string_view word);

// Flushes standard output. Throws Error if that or any write to it before has failed.
void finish_standard_output();

// An option with a value (`-n VALUE`, `--name VALUE` or `--name=VALUE`), or a flag without one. One
// of the two pointers says where the result is stored.
struct Option {
  std::string_view name;
  const char** value = nullptr;
  bool* flag = nullptr;
  const char* needs = "";  // the kind of value, for the message that it is missing
};

// Returns the words from argv[first] on that are neither options nor their values. After "--", no
// word is an option. Sets the options. Ends the program on --help and --version. Throws Error for
// an unknown option, a missing value, and a second value.
std::vector<const char*> parse_words(int argc, char** argv, int first,
                                     const std::vector<Option>& options);

// Parses the value of the option: a whole number, 0 or more. Throws Error for anything else.
unsigned parse_number(const char* text, const char* option);

// Runs the step and returns whether it succeeded. Prints the message of an Error on standard error,
// so that the program can go on with the next step.
bool attempt(const std::function<void()>& step);

}  // namespace runenv
