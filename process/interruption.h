// Internal: cleaning up before SIGINT, SIGTERM or SIGHUP ends the program. The signal handler ends
// a running tool, waits for it, and removes temporary files. Then the signal ends the program.
#pragma once

#include <sys/types.h>

#include <atomic>

namespace runenv {

// At most one of each at a time. Whoever stores a name keeps ownership of it.
extern std::atomic<const char*> interrupted_file;        // null: none
extern std::atomic<const char*> interrupted_tool_input;  // a file made for the tool; null: none
extern std::atomic<pid_t> interrupted_tool;              // 0: none

// Installs the handler for those of these signals that have their default action, so an ignored
// signal stays ignored. May be called again.
void undo_on_signals();

// Delays the signals while an object of this class exists, for steps that must not be interrupted.
// A tool that runs meanwhile receives them at once, so the program does not wait for it for long.
// Child processes that are started meanwhile do not inherit the delay.
class SignalsHeld {
 public:
  SignalsHeld();
  ~SignalsHeld();
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;
};

}  // namespace runenv
