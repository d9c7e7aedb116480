// Internal: support for appending bytes that lie in the block that is about to be reallocated.
#pragma once

#include <cstddef>
#include <cstdint>

namespace runenv {

// Returns the offset of `bytes` in the `size` bytes at `block`, or -1 if `bytes` lies elsewhere.
inline ptrdiff_t offset_in(const char* block, size_t size, const char* bytes) {
  const auto offset = reinterpret_cast<uintptr_t>(bytes) - reinterpret_cast<uintptr_t>(block);
  return offset < size ? static_cast<ptrdiff_t>(offset) : -1;
}

}  // namespace runenv
