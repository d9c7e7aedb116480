#include <cstdarg>
#include <cstdio>

#include "runtime/runtime_core.h"

[[gnu::init_priority(101)]] RuntimeCore Runtime;

bool genv_debug_info = false;
bool genv_debug_verbose = false;

// cppcheck-suppress noDestructor ; the state stays: the one instance lives until the end
RuntimeCore::RuntimeCore() : state(new State) {}

void RuntimeCore::setup_prefix(const char* prefix) {
  state->prefix = std::string(prefix);  // the constructor throws for a null pointer
  state->prefix_enabled = true;
}

void RuntimeCore::reset_prefix() {
  state->prefix_enabled = false;
}

static void print(FILE* stream, const std::string& format, va_list arguments) {
  std::vfprintf(stream, format.c_str(), arguments);
  std::fflush(stream);
}

// The prefix becomes part of the format string on purpose: a "%" in it is a conversion.
static std::string plain(bool prefix_enabled, const std::string& prefix, const char* format) {
  return prefix_enabled ? "[" + prefix + "] " + format : std::string(format);
}

// The reset code comes after the whole text, including its newline.
static std::string coloured(RuntimeCore::SGR colour, const char* format) {
  return "\x1b[" + std::to_string(static_cast<int>(colour)) + "m" + format + "\x1b[0m";
}

void RuntimeCore::log(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  print(stdout, plain(state->prefix_enabled, state->prefix, format), arguments);
  va_end(arguments);
}

void RuntimeCore::error(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  print(stderr, plain(state->prefix_enabled, state->prefix, format), arguments);
  va_end(arguments);
}

void RuntimeCore::log(SGR colour, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string text = coloured(colour, format);
  print(stdout, plain(state->prefix_enabled, state->prefix, text.c_str()), arguments);
  va_end(arguments);
}

void RuntimeCore::error(SGR colour, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string text = coloured(colour, format);
  print(stderr, plain(state->prefix_enabled, state->prefix, text.c_str()), arguments);
  va_end(arguments);
}
