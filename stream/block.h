// Internal: a block of bytes that is read piece by piece, as every input stream holds one.
#pragma once

#include <algorithm>
#include <cstring>

namespace runenv {

inline constexpr size_t kLargestShortCopy = 64;

// Copies up to 64 bytes, both ends in pieces of a constant size, which overlap in the middle. That
// is single instructions and not a call: documents are read by numbers and names, a fifth faster
// so.
template <size_t piece = kLargestShortCopy / 2>
void copy_short(char* to, const char* from, size_t size) {
  if constexpr (piece < 4) {
    std::memcpy(to, from, size);
  } else if (size < piece) {
    copy_short<piece / 2>(to, from, size);
  } else {
    std::memcpy(to, from, piece);
    std::memcpy(to + size - piece, from + size - piece, piece);
  }
}

// Copies up to `count` of the `*remaining` unread bytes at `*position` to `destination`, which may
// be null for a count of 0. Moves both on and returns how many bytes it has copied.
template <typename Byte, typename Size>
Size take(Byte** position, Size* remaining, char* destination, unsigned long long count) {
  const auto n = static_cast<Size>(std::min<unsigned long long>(*remaining, count));
  if (n > kLargestShortCopy) {
    std::memcpy(destination, *position, n);
  } else if (n != 0) {
    copy_short(destination, *position, n);
  }
  *position += n;
  *remaining -= n;
  return n;
}

}  // namespace runenv
