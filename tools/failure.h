// Throws an Error of the form "SUBJECT: REASON", such as "FILE: No such file or directory".
#pragma once

#include <string_view>

namespace runenv {

[[noreturn]] void throw_failure_of(std::string_view subject, std::string_view reason);

// The reason is the system's text for errno.
[[noreturn]] void throw_errno_of(std::string_view subject);

}  // namespace runenv
