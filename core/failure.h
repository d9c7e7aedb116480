// Internal: functions that throw an Error of type Failure.
#pragma once

#include <string>

namespace runenv {

[[noreturn]] void throw_failure(const std::string& message);

// The message is strerror's text for `error_number`.
[[noreturn]] void throw_system_failure(int error_number);

}  // namespace runenv
