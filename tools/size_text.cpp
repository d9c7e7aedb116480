#include "tools/size_text.h"

#include <cstdio>

namespace runenv {

std::string size_text(uint64_t bytes) {
  static constexpr const char* kUnits[] = {"B", "kB", "MB", "GB", "TB", "PB", "EB"};
  static constexpr double kStep = 1000, kShort = 9.95;
  auto amount = static_cast<double>(bytes);
  size_t unit = 0;
  while (amount >= kStep - 0.5) {
    amount /= kStep;
    ++unit;
  }
  char text[16];
  std::snprintf(text, sizeof text, "%.*f %s", unit != 0 && amount < kShort ? 1 : 0, amount,
                kUnits[unit]);
  return text;
}

std::string count_text(size_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace runenv
