// Internal: repeating system calls that a signal interrupted.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace runenv {

// Makes the call, repeats it while it fails with EINTR, and returns the last result.
template <typename Call>
auto retry(const Call& call) {
  auto result = call();
  while (result < 0 && errno == EINTR) {
    result = call();
  }
  return result;
}

// Writes all of the bytes. Returns false with errno if that fails.
inline bool write_all(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = retry([&] { return write(descriptor, bytes.data(), bytes.size()); });
    if (n < 0) {
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

}  // namespace runenv
