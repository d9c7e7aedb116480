// Internal: running several callbacks even if one of them throws.
#pragma once

#include <exception>

namespace runenv {

// Runs calls one by one and keeps the first exception. Later ones are lost.
class FirstException {
 public:
  // Returns false if the call throws.
  template <typename Call>
  bool run(const Call& call) {
    try {
      call();
      return true;
    } catch (...) {
      first = first ? first : std::current_exception();
      return false;
    }
  }

  // Throws the kept exception, if there is one.
  void rethrow() const {
    if (first) {
      std::rethrow_exception(first);
    }
  }

 private:
  std::exception_ptr first;
};

}  // namespace runenv
