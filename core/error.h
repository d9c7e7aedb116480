// The exception type of the library. It has no base class, so a handler of std::exception does not
// catch it. Throw it by value and catch it by reference.
#pragma once

#include <cstdint>

class Error {
 public:
  // What went wrong.
  enum class Type : uint32_t {
    Failure = 10,   // an operation on the outside world failed
    Internal = 11,  // a kind tag has an unknown value
  };

  // Copies `text`, which must not be null.
  Error(Type error_type, const char* text);

  // Takes the message of `other`.
  Error(Error&& other) noexcept;

  Error(const Error&) = delete;
  Error& operator=(const Error&) = delete;
  Error& operator=(Error&&) = delete;
  ~Error();

  Type type;      // what went wrong
  char* message;  // NUL-terminated, owned; null after a move from this object
};
