// Internal: what is appended may lie in the very block that grows for it, and moves.
#pragma once

#include <cstddef>
#include <cstdint>

namespace runenv {

// The offset of `bytes` in the `size` bytes at `block`; -1 where they lie elsewhere.
inline ptrdiff_t offset_in(const char* block, size_t size, const char* bytes) {
  const auto offset = reinterpret_cast<uintptr_t>(bytes) - reinterpret_cast<uintptr_t>(block);
  return offset < size ? static_cast<ptrdiff_t>(offset) : -1;
}

}  // namespace runenv
