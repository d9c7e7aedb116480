#include "core/buffer.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "core/allocation.h"
#include "runtime/runtime_core.h"

Buffer::Buffer(unsigned long long initial_capacity) : capacity(initial_capacity) {
  if (capacity != 0) {
    array = static_cast<char*>(runenv::allocate(capacity));
  }
}

Buffer::~Buffer() {
  release();
}

void Buffer::append(const char* bytes, unsigned long long n) {
  const unsigned long long need = size + n;
  // Beyond half of the address space no allocation succeeds, and doubling would wrap.
  if (need < size || need > UINT64_MAX / 2) {
    fail_out_of_memory();
  }
  // After exhaustion `array` dangles; a capacity of 0 says that it is not ours.
  char* const previous = capacity == 0 ? nullptr : array;
  unsigned long long wanted = capacity == 0 ? 8 : capacity;
  while (wanted < need) {
    wanted *= 2;
  }
  const auto start = reinterpret_cast<uintptr_t>(previous);
  const uintptr_t offset = reinterpret_cast<uintptr_t>(bytes) - start;
  const bool own_bytes = previous != nullptr && offset < capacity;
  char* const grown = static_cast<char*>(std::realloc(previous, wanted));
  if (grown == nullptr) {
    fail_out_of_memory();
  }
  array = grown;
  capacity = wanted;
  if (n != 0) {
    std::memmove(array + size, own_bytes ? array + offset : bytes, n);
  }
  size = need;
}

void Buffer::append(const Buffer& other) {
  append(other.array, other.size);
}

void Buffer::release() {
  if (capacity == 0) {
    return;
  }
  std::free(array);
  array = nullptr;
  size = 0;
  capacity = 0;
}

char* Buffer::get_unmanaged_array() {
  static char empty[1] = {'\0'};
  // The test is against the capacity, not the size, on purpose: a fully read buffer still gives
  // its own storage.
  if (capacity == 0 || consumed > capacity) {
    return empty;
  }
  return array + consumed;
}

void Buffer::fail_out_of_memory() {
  if (capacity != 0) {
    std::free(array);  // the field keeps its value; a capacity of 0 tells that nothing is owned
    capacity = 0;
    size = 0;
  }
  Runtime.error("Out of memory!\n");
  throw "Out of memory!";
}
