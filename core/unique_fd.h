// Owns one descriptor: no early return or throw leaves it open.
#pragma once

#include <unistd.h>

#include <utility>

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
