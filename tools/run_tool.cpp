#include "tools/run_tool.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "core/error.h"
#include "core/owner.h"
#include "core/retry.h"
#include "process/tool.h"
#include "tools/failure.h"
#include "tools/published_name.h"

namespace runenv {

static ChildProcess::redirect_t redirect(const char* file) {
  if (file == nullptr) {
    return {ChildProcess::REDIRECT_INHERIT, nullptr};
  }
  // /dev or /proc may be missing. Report this here, because a failed redirection would look like a
  // failure of the program.
  if (access(file, F_OK) != 0) {
    throw_errno_of(file);
  }
  return {ChildProcess::REDIRECT_FILE, file};
}

static void take_lines(std::string* text, const std::function<void(std::string_view)>& take) {
  size_t begin = 0;
  for (size_t end; (end = text->find('\n', begin)) != text->npos; begin = end + 1) {
    take(std::string_view(*text).substr(begin, end - begin));
  }
  text->erase(0, begin);
}

// Waits until the descriptor is ready, and calls watch.tick meanwhile. Returns false if poll fails.
static bool wait_until_ready(int descriptor, pid_t tool, const ToolWatch& watch) {
  static constexpr int kTick = 200;  // in milliseconds
  pollfd ready{.fd = descriptor, .events = POLLIN, .revents = 0};
  for (;;) {
    const int count = retry([&] { return poll(&ready, 1, watch.tick ? kTick : -1); });
    if (watch.tick) {
      watch.tick(tool);
    }
    if (count != 0) {
      return count > 0;
    }
  }
}

// Passes each line of the tool's output to watch.line, until the output ends.
static void follow_lines(const ChildProcess::process_t& tool, const ToolWatch& watch) {
  static constexpr size_t kBlockSize = 65536;
  std::string text;
  while (wait_until_ready(tool.out.fd, tool.pid, watch)) {
    const size_t before = text.size();
    text.resize(before + kBlockSize);
    const ssize_t n = retry([&] { return read(tool.out.fd, &text[before], kBlockSize); });
    if (n == 0 || (n < 0 && errno != EAGAIN)) {
      return;
    }
    text.resize(before + static_cast<size_t>(std::max<ssize_t>(n, 0)));
    take_lines(&text, watch.line);
  }
}

// Calls the functions of `watch` while the tool runs.
static void follow(const ChildProcess::process_t& tool, const ToolWatch& watch) {
  if (watch.line) {
    follow_lines(tool, watch);
  } else if (watch.tick) {
    const unique_fd end(static_cast<int>(syscall(SYS_pidfd_open, tool.pid, 0)));
    if (end.get() >= 0) {  // old kernels lack pidfd_open: then there are no ticks
      wait_until_ready(end.get(), tool.pid, watch);
    }
  }
}

void run_tool(const std::vector<std::string>& words, const char* in, const char* out,
              const fs::path_t& subject, const std::string& problem, const ToolWatch& watch) {
  using namespace ChildProcess;
  const redirect_t input = redirect(in);
  const redirect_t output = watch.line ? redirect_t{REDIRECT_PIPE, nullptr} : redirect(out);
  unsetenv("TAR_OPTIONS");  // it could change what is packed or unpacked
  std::vector<const char*> argv;
  argv.reserve(words.size() + 1);
  for (const std::string& word : words) {
    argv.push_back(word.c_str());
  }
  argv.push_back(nullptr);
  owner<process_t, end_tool> tool;
  try {
    tool.reset(start_tool(argv.data(), input, output, {REDIRECT_INHERIT, nullptr}, nullptr));
  } catch (const Error& error) {
    throw_failure_of(words[0], error.message);
  }
  follow(*tool.get(), watch);
  const result_t result = wait2(tool.get());
  if (result.kind != 0) {
    const bool exited = result.kind == 1;
    throw_failure_of(subject.cstring(),
                     problem + " (" + std::string(last_component(words[0])) + ": " +
                         (exited ? "exit status " + std::to_string(result.code) : result.message) +
                         ")");
  }
}

}  // namespace runenv
