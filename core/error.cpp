#include "core/error.h"

#include <cstdlib>
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
