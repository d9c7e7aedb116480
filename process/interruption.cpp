#include "process/interruption.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "core/retry.h"

namespace runenv {

std::atomic<const char*> interrupted_file;
std::atomic<const char*> interrupted_tool_input;
std::atomic<pid_t> interrupted_tool;
static_assert(std::atomic<const char*>::is_always_lock_free &&
              std::atomic<pid_t>::is_always_lock_free);

static volatile std::sig_atomic_t held;     // the number of SignalsHeld objects
static volatile std::sig_atomic_t arrived;  // the signal that came while they were held, 0: none

// Sends the tool the same signal. The tool does not ignore the signal: the handler is not installed
// for ignored signals, so the tool has not inherited one. SIGCONT wakes a stopped tool. A tool that
// has ended is left alone: if it was reaped, another process may have its id. Returns whether it
// was running.
static bool pass_on(pid_t tool, int signal) {
  siginfo_t ended{};
  if (tool <= 0 ||
      waitid(P_PID, static_cast<id_t>(tool), &ended, WEXITED | WNOHANG | WNOWAIT) != 0 ||
      ended.si_pid != 0) {
    return false;
  }
  kill(tool, signal);
  kill(tool, SIGCONT);
  return true;
}

// Finally the same signal ends the program, so that its parent learns the true reason.
static void undo(int signal) {
  const int error = errno;
  const pid_t tool = interrupted_tool;
  const bool was_running = pass_on(tool, signal);
  if (held != 0) {
    arrived = signal;
    errno = error;
    return;
  }
  if (was_running) {
    retry([=] { return waitpid(tool, nullptr, 0); });
  }
  for (const char* const file : {interrupted_file.load(), interrupted_tool_input.load()}) {
    if (file != nullptr) {
      unlink(file);
    }
  }
  std::signal(signal, SIG_DFL);
  raise(signal);
}

void undo_on_signals() {
  static constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  action.sa_handler = undo;
  action.sa_flags = SA_RESTART;
  for (const int signal : kSignals) {
    sigaddset(&action.sa_mask, signal);
  }
  for (const int signal : kSignals) {
    struct sigaction before;
    if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_DFL) {
      sigaction(signal, &action, nullptr);
    }
  }
}

SignalsHeld::SignalsHeld() {
  held = held + 1;
}

SignalsHeld::~SignalsHeld() {
  held = held - 1;
  if (arrived != 0) {  // also while others hold it: a tool may have been started since
    undo(arrived);
  }
}

}  // namespace runenv
