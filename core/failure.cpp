#include "core/failure.h"

#include <cstring>

#include "core/error.h"

namespace runenv {

void throw_failure(const std::string& message) {
  throw Error(Error::Type::Failure, message.c_str());
}

void throw_system_failure(int error_number) {
  throw_failure(std::strerror(error_number));
}

}  // namespace runenv
