// A companion program: its name, its --help, its words, and how it ends.
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
  const char* about_version = "";  // what --version prints behind the version, with a line end
  int failure_status = 1;
};

// Runs the body of the program and returns its exit status. That is failure_status if the body
// throws Error; the message goes to standard error. A program calls it once, from main.
int run_program(const Program& program, int argc, char** argv);

// The name of the program that run_program runs.
const char* program_name();

// Throws an Error about the command line. Behind its message, run_program prints a hint at --help.
[[noreturn]] void throw_usage(const std::string& message);

// Prints what --help or --version asks for and ends the program. Returns for any other word.
void exit_on_help(std::string_view word);

// Flushes standard output. Throws Error if that or any write to it before has failed.
void finish_standard_output();

// An option with a value, given as `-n VALUE`, `--name VALUE` or `--name=VALUE`, or a flag, which
// has none. One of the two pointers says where it goes.
struct Option {
  std::string_view name;
  const char** value = nullptr;
  bool* flag = nullptr;
  const char* needs = "";  // what the value is, for the message that it is missing
};

// Returns the words from argv[first] on that are neither options nor their values. After "--" every
// word is such a word. Sets the options; ends the program on --help and --version. Throws Error for
// an unknown option, for a value that is missing, and for a second value.
std::vector<const char*> parse_words(int argc, char** argv, int first,
                                     const std::vector<Option>& options);

// Returns the whole number from 0 on that is the option's value. Throws Error for anything else.
unsigned parse_number(const char* text, const char* option);

// Takes the step and returns whether all went well. An Error is told on standard error: what cannot
// be done for one thing keeps nothing from being done for others.
bool attempt(const std::function<void()>& step);

}  // namespace runenv
