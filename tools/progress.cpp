#include "tools/progress.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "core/owner.h"
#include "tools/size_text.h"

namespace runenv {

static size_t columns() {
  static constexpr size_t kUsual = 80;
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
}

void StatusLine::show(std::string text) {
  if (!visible) {
    return;
  }
  size_t end = std::min(text.size(), columns() - 1);  // a longer line would scroll
  while (end < text.size() && end > 0 && (text[end] & 0xc0) == 0x80) {
    --end;  // do not cut a UTF-8 character in two
  }
  text.resize(end);
  std::fprintf(stderr, "\r%s\033[K", text.c_str());
  shown = true;
}

void StatusLine::clear() {
  if (shown) {
    std::fputs("\r\033[K", stderr);
  }
  shown = false;
}

Progress::Progress(const char* job_name, uint64_t total_bytes, std::function<uint64_t(pid_t)> done)
    : job(job_name), total(total_bytes), done_by(std::move(done)) {}

std::function<void(pid_t)> Progress::ticks() {
  if (!line.is_visible()) {
    return {};
  }
  return [this](pid_t tool) {
    static constexpr std::chrono::milliseconds kPause(200);
    if (std::chrono::steady_clock::now() - last >= kPause) {
      show(done_by(tool));
      last = std::chrono::steady_clock::now();
    }
  };
}

void Progress::show(uint64_t done) {
  using Seconds = std::chrono::duration<double>;
  const double seconds = Seconds(std::chrono::steady_clock::now() - begin).count();
  const uint64_t part = std::min(done, total);
  const double rate = static_cast<double>(part) / seconds;
  std::string text = job + ": " + size_text(part) + " of " + size_text(total) + ", " +
                     size_text(static_cast<uint64_t>(rate)) + "/s";
  if (part != 0) {
    const double left = static_cast<double>(total - part) / rate;
    text += ", " + std::to_string(static_cast<uint64_t>(left + 1)) + " s left";
  }
  line.show(text);
}

// Returns the number after `field` in a file of /proc, or 0 if the file cannot be read.
static uint64_t number_in(const std::string& file, std::string_view field) {
  const owner<FILE, std::fclose> lines(std::fopen(file.c_str(), "re"));
  char line[128];
  while (lines != nullptr && std::fgets(line, sizeof line, lines.get()) != nullptr) {
    if (std::string_view(line).starts_with(field)) {
      return std::strtoull(line + field.size(), nullptr, 10);
    }
  }
  return 0;
}

uint64_t bytes_read_by(pid_t process) {
  return number_in("/proc/" + std::to_string(process) + "/io", "rchar:");
}

uint64_t place_in_input_of(pid_t process) {
  return number_in("/proc/" + std::to_string(process) + "/fdinfo/0", "pos:");
}

}  // namespace runenv
