// Internal: repeating system calls that a signal interrupted.
#pragma once

#include <cerrno>

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

}  // namespace runenv
