#include "process/interruption.h"

#include <sys/wait.h>
#include <unistd.h>

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

// Sends the tool the same signal and waits for its end. The tool does not ignore the signal: the
// handler is not installed for ignored signals, so the tool has not inherited one. SIGCONT wakes a
// stopped tool. A tool that was already reaped is left alone: another process may have its id.
static void end_by_signal(pid_t tool, int signal) {
  if (waitpid(tool, nullptr, WNOHANG) != 0) {
    return;
  }
  kill(tool, signal);
  kill(tool, SIGCONT);
  retry([=] { return waitpid(tool, nullptr, 0); });
}

// Finally the same signal ends the program, so that its parent learns the true reason.
static void undo(int signal) {
  if (held != 0) {
    arrived = signal;
    return;
  }
  const pid_t tool = interrupted_tool;
  if (tool > 0) {
    end_by_signal(tool, signal);
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
  if (held == 0 && arrived != 0) {
    undo(arrived);
  }
}

}  // namespace runenv
