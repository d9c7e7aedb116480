// Common to the fuzz targets: making decisions and texts from the bytes of an input.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

// Prints the condition and aborts if the code and its model differ.
#define REQUIRE(condition) \
  ((condition) ? void() : (fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition), abort()))

class Input {
 public:
  Input(const uint8_t* data, size_t size) : bytes(data, data + size) {}

  bool empty() const { return at == bytes.size(); }
  uint8_t byte() { return empty() ? uint8_t{0} : static_cast<uint8_t>(bytes[at++]); }
  std::string text(size_t length) {
    const size_t start = at;
    at += std::min(length, bytes.size() - at);
    return bytes.substr(start, at - start);
  }
  // A text without NUL, as C functions take it.
  std::string c_text(size_t length) { return text(length).c_str(); }

 private:
  const std::string bytes;
  size_t at = 0;
};
