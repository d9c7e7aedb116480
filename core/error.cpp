#include "core/error.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "core/c_string.h"

Error::Error(Type error_type, const char* text) : type(error_type), message(nullptr) {
  copy_string(&message, text);
}

Error::Error(Error&& other) noexcept
    : type(other.type), message(std::exchange(other.message, nullptr)) {}

Error::~Error() {
  std::free(message);
}

void throw_failure(const std::string& message) {
  throw Error(Error::Type::Failure, message.c_str());
}

void throw_system_failure(int error_number) {
  throw Error(Error::Type::Failure, std::strerror(error_number));
}
