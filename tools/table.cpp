#include "tools/table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace runenv {

static constexpr size_t kGap = 2;  // blanks between two columns

bool has_colours() {
  const char* const no_colour = std::getenv("NO_COLOR");
  return isatty(STDOUT_FILENO) == 1 && (no_colour == nullptr || *no_colour == '\0');
}

static size_t width_of(const std::string& text) {
  // Assumes that each character is one column wide.
  return static_cast<size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

static size_t columns_shown(const std::vector<size_t>& widths) {
  winsize size;
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
    return widths.size();
  }
  size_t total = 0, shown = 0;
  while (shown < widths.size() && (total += widths[shown] + kGap) <= size.ws_col + kGap) {
    ++shown;
  }
  return std::max<size_t>(shown, 3);
}

void print_table(const std::vector<TableRow>& rows, size_t coloured) {
  const bool in_colour = has_colours();
  std::vector<size_t> widths(rows.front().cells.size());
  for (const TableRow& row : rows) {
    for (size_t i = 0; i < widths.size(); ++i) {
      widths[i] = std::max(widths[i], width_of(row.cells[i]));
    }
  }
  const size_t shown = columns_shown(widths);
  for (const TableRow& row : rows) {
    std::string line;
    for (size_t i = 0; i < shown; ++i) {
      const std::string& cell = row.cells[i];
      const bool marked = in_colour && i == coloured && row.colour != nullptr;
      line += (marked ? std::string("\x1b[") + row.colour + "m" : "") + cell +
              (marked ? "\x1b[0m" : "") + std::string(widths[i] - width_of(cell) + kGap, ' ');
    }
    line.resize(line.find_last_not_of(' ') + 1);
    std::printf("%s\n", line.c_str());
  }
}

}  // namespace runenv
