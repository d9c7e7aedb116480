#include "tools/failure.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "core/failure.h"

namespace runenv {

void throw_failure_of(std::string_view subject, std::string_view reason) {
  throw_failure(std::string(subject) + ": " + std::string(reason));
}

void throw_errno_of(std::string_view subject) {
  throw_failure_of(subject, std::strerror(errno));
}

}  // namespace runenv
