// Internal: unsigned 32-bit integers as 4 bytes, most significant byte first.
#pragma once

#include <cstdint>

namespace runenv {

inline uint32_t read_big_endian(const void* bytes) {
  const auto* const b = static_cast<const unsigned char*>(bytes);
  return uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | b[3];
}

// Stores the 4 bytes at `bytes`.
inline void write_big_endian(void* bytes, uint32_t value) {
  auto* const b = static_cast<unsigned char*>(bytes);
  b[0] = static_cast<unsigned char>(value >> 24);
  b[1] = static_cast<unsigned char>(value >> 16);
  b[2] = static_cast<unsigned char>(value >> 8);
  b[3] = static_cast<unsigned char>(value);
}

}  // namespace runenv
