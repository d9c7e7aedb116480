#include "core/allocation.h"

#include <cstdio>
#include <cstdlib>

namespace runenv {

// `empty`: a block of 0 bytes was requested, which may be null.
static void* abort_if_exhausted(void* block, bool empty) {
  if (block == nullptr && !empty) {
    std::fputs("Out of memory!\n", stderr);
    std::abort();
  }
  return block;
}

void* allocate(size_t bytes) {
  return abort_if_exhausted(std::malloc(bytes), bytes == 0);
}

void* allocate_zeroed(size_t bytes) {
  return abort_if_exhausted(std::calloc(1, bytes), bytes == 0);
}

void* reallocate(void* block, size_t bytes) {
  return abort_if_exhausted(std::realloc(block, bytes), bytes == 0);
}

void* reallocate_array(void* block, size_t count, size_t size) {
  return abort_if_exhausted(reallocarray(block, count, size), count == 0 || size == 0);
}

}  // namespace runenv
