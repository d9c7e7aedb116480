// What the fuzz targets share: taking decisions and texts from the bytes of an input.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

// Stops at once where the code and its model disagree.
#define REQUIRE(condition)                                            \
  do {                                                                \
    if (!(condition)) {                                               \
      fprintf(stdout, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
      abort();                                                        \
    }                                                                 \
  } while (0)

class Input {
 public:
  Input(const uint8_t* bytes, size_t size) : next(bytes), left(size) {}

  bool empty() const { return left == 0; }
  uint8_t byte() {
    if (left == 0) {
      return 0;
    }
    --left;
    return *next++;
  }
  std::string text(size_t length) {
    std::string taken;
    while (length-- != 0 && left != 0) {
      taken += static_cast<char>(byte());
    }
    return taken;
  }
  // A text without NUL, as C functions take it.
  std::string c_text(size_t length) { return text(length).c_str(); }
  std::string rest() { return text(left); }

 private:
  const uint8_t* next;
  size_t left;
};
