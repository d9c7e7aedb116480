#include "core/allocation.h"

#include <cstdio>
#include <cstdlib>

namespace runenv {

// malloc(0) may return null without having failed.
static void* require(void* block, bool may_be_null) {
  if (block == nullptr && !may_be_null) {
    std::fputs("Out of memory!\n", stderr);
    std::abort();
  }
  return block;
}

void* allocate(size_t bytes) {
  return require(std::malloc(bytes), bytes == 0);
}

void* allocate_zeroed(size_t bytes) {
  return require(std::calloc(1, bytes), bytes == 0);
}

void* reallocate(void* block, size_t bytes) {
  return require(std::realloc(block, bytes), bytes == 0);
}

void* reallocate_array(void* block, size_t count, size_t size) {
  return require(reallocarray(block, count, size), count == 0 || size == 0);
}

}  // namespace runenv
