// Shows the progress of a long job on a terminal.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace runenv {

// A line on standard error that is updated in place. Nothing appears unless standard error is a
// terminal. The destructor clears the line.
class StatusLine {
 public:
  StatusLine() = default;
  ~StatusLine() { clear(); }
  StatusLine(const StatusLine&) = delete;
  StatusLine& operator=(const StatusLine&) = delete;

  bool is_visible() const { return visible; }
  void show(std::string text);  // has to be printable; is cut to the width of the terminal
  void clear();

 private:
  const bool visible = isatty(STDERR_FILENO) == 1;
  bool shown = false;
};

// A status line such as "packing: 120 MB of 1.1 GB, 45 MB/s, 21 s left".
class Progress {
 public:
  // `done` returns how many of the `total_bytes` the tool with the given process id has processed.
  Progress(const char* job_name, uint64_t total_bytes, std::function<uint64_t(pid_t)> done);

  // Returns a function for ToolWatch::tick, which updates the line at most five times a second.
  // Returns an empty function if standard error is not a terminal.
  std::function<void(pid_t)> ticks();

 private:
  void show(uint64_t done);

  const std::string job;
  const uint64_t total;
  const std::function<uint64_t(pid_t)> done_by;
  const std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point last = begin;
  StatusLine line;
};

// Returns how many bytes the process has read so far, or 0 if that is unknown.
uint64_t bytes_read_by(pid_t process);

// Returns the process's offset in its standard input in bytes, or 0 if that is unknown.
uint64_t place_in_input_of(pid_t process);

}  // namespace runenv
