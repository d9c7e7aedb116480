// Internal: throwing an Error of type Failure: an operation on the outside world failed.
#pragma once

#include <string>

namespace runenv {

[[noreturn]] void throw_failure(const std::string& message);

// The whole message is the system's text for `error_number`.
[[noreturn]] void throw_system_failure(int error_number);

}  // namespace runenv
