#include "core/string_array.h"

#include <cstdlib>
#include <utility>

#include "core/allocation.h"
#include "core/c_string.h"

StringArray::~StringArray() {
  release();
}

const char* StringArray::get_unmanaged_string(unsigned index) const {
  return index < count ? strings[index] : nullptr;
}

void StringArray::update_from(const char* const* source, unsigned n) {
  StringArray previous;  // freed last, because `source` may be its strings
  std::swap(previous.strings, strings);
  std::swap(previous.count, count);
  copy_from(source, n);
}

void StringArray::copy_from(const char* const* source, unsigned n) {
  strings = static_cast<char**>(runenv::allocate(n * sizeof(char*)));
  for (unsigned i = 0; i < n; ++i) {
    copy_string(&strings[i], source[i]);
  }
  count = n;
}

void StringArray::release() {
  if (strings == nullptr) {
    return;
  }
  for (unsigned i = 0; i < count; ++i) {
    std::free(strings[i]);
  }
  std::free(strings);
  strings = nullptr;
  count = 0;
}
