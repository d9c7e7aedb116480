// Internal: owners of C resources, so that no early return or exception leaks them.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <utility>

#include "core/bucket.h"

namespace runenv {

template <auto Release>
struct Releaser {
  template <typename T>
  void operator()(T* resource) const {
    Release(resource);
  }
};

// Owns a resource that `Release` frees, for example owner<FILE, std::fclose>.
template <typename T, auto Release>
using owner = std::unique_ptr<T, Releaser<Release>>;

// Owns one malloc'ed block, such as a heap C string.
template <typename T>
using malloc_ptr = owner<T, std::free>;

// A string builder that is released at the end of its scope.
struct OwnedBucket : bucket_t {
  // cppcheck-suppress uninitDerivedMemberVar ; the base is a copy of the builder
  explicit OwnedBucket(const bucket_t& builder) : bucket_t(builder) {}
  ~OwnedBucket() { bucket_release(this); }
  OwnedBucket(const OwnedBucket&) = delete;
  OwnedBucket& operator=(const OwnedBucket&) = delete;
};

// Owns a file descriptor. A negative one stands for none.
class unique_fd {
 public:
  explicit unique_fd(int descriptor = -1) : fd(descriptor) {}
  unique_fd(unique_fd&& other) noexcept : fd(other.release()) {}
  unique_fd& operator=(unique_fd&& other) noexcept {
    reset(other.release());
    return *this;
  }
  ~unique_fd() { reset(); }

  int get() const { return fd; }
  int release() { return std::exchange(fd, -1); }
  void reset(int descriptor = -1) {
    if (fd >= 0) {
      close(fd);
    }
    fd = descriptor;
  }

 private:
  int fd;
};

}  // namespace runenv
