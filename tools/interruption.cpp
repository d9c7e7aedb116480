#include "tools/interruption.h"

#include <unistd.h>

std::atomic<const char*> interrupted_file;
std::atomic<pid_t> interrupted_tool;
static_assert(std::atomic<const char*>::is_always_lock_free &&
              std::atomic<pid_t>::is_always_lock_free);

static constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

static sigset_t signal_set() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : kSignals) {
    sigaddset(&set, signal);
  }
  return set;
}

// Blocked while it runs and back at its default, the signal arrives again on return and ends the
// program, whose parent so learns the true reason.
static void undo(int signal) {
  const pid_t tool = interrupted_tool;
  if (tool > 0) {
    kill(tool, SIGTERM);
  }
  const char* const file = interrupted_file;
  if (file != nullptr) {
    unlink(file);
  }
  raise(signal);
}

void undo_on_signals() {
  struct sigaction action {};
  action.sa_handler = undo;
  action.sa_mask = signal_set();
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  for (const int signal : kSignals) {
    struct sigaction before;
    if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_DFL) {
      sigaction(signal, &action, nullptr);
    }
  }
}

SignalsBlocked::SignalsBlocked() {
  const sigset_t set = signal_set();
  sigprocmask(SIG_BLOCK, &set, &before);
}

SignalsBlocked::~SignalsBlocked() {
  sigprocmask(SIG_SETMASK, &before, nullptr);
}
