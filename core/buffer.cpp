#include "core/buffer.h"

#include <cstdlib>
#include <cstring>

#include "core/allocation.h"
#include "core/overlap.h"
#include "runtime/runtime_core.h"

static constexpr unsigned long long kFirstCapacity = 8;
// No larger allocation succeeds, and doubling this value would overflow.
static constexpr unsigned long long kLargestCapacity = 1ULL << 63;

// Returns the capacity, doubled until it holds `need` bytes.
static unsigned long long grown_capacity(unsigned long long capacity, unsigned long long need) {
  unsigned long long grown = capacity == 0 ? kFirstCapacity : capacity;
  while (grown < need) {
    grown *= 2;
  }
  return grown;
}

Buffer::Buffer(unsigned long long initial_capacity) : capacity(initial_capacity) {
  if (capacity != 0) {
    array = static_cast<char*>(runenv::allocate(capacity));
  }
}

Buffer::~Buffer() {
  release();
}

void Buffer::append(const char* bytes, unsigned long long n) {
  if (n > kLargestCapacity - size) {
    throw_out_of_memory();
  }
  const ptrdiff_t own_offset = runenv::offset_in(array, capacity, bytes);
  grow(size + n);
  if (n != 0) {
    std::memmove(array + size, own_offset < 0 ? bytes : array + own_offset, n);
  }
  size += n;
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
  // Compares with the capacity and not with the size on purpose: a buffer that was read to its end
  // returns its own storage.
  if (capacity == 0 || consumed > capacity) {
    return empty;
  }
  return array + consumed;
}

void Buffer::grow(unsigned long long need) {
  const unsigned long long grown = grown_capacity(capacity, need);
  // With a capacity of 0 the buffer owns nothing, and `array` may dangle.
  void* const block = std::realloc(capacity == 0 ? nullptr : array, grown);
  if (block == nullptr) {
    throw_out_of_memory();
  }
  array = static_cast<char*>(block);
  capacity = grown;
}

void Buffer::throw_out_of_memory() {
  if (capacity != 0) {
    std::free(array);  // `array` dangles from here on
    capacity = 0;
    size = 0;
  }
  Runtime.error("Out of memory!\n");
  throw "Out of memory!";
}
