#include "core/c_string.h"

#include <cstring>

#include "core/allocation.h"

bool equal(const char* a, const char* b) {
  return std::strcmp(a, b) == 0;
}

char* copy_string(char** target, const char* source) {
  const size_t bytes = std::strlen(source) + 1;
  *target = static_cast<char*>(std::memcpy(runenv::allocate(bytes), source, bytes));
  return *target;
}

bool ByteArrayComparator::operator()(const char* a, const char* b) const {
  return std::strcmp(a, b) < 0;
}
