// Internal: system calls that a signal interrupts.
#pragma once

#include <cerrno>

namespace runenv {

// Makes the call, again as long as a signal interrupts it, and returns its result.
template <typename Call>
auto retry(const Call& call) {
  auto result = call();
  while (result < 0 && errno == EINTR) {
    result = call();
  }
  return result;
}

}  // namespace runenv
