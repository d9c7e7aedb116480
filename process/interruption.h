// Internal: what a program undoes before SIGINT, SIGTERM or SIGHUP ends it. A tool that works for
// it is ended and waited for, and temporary files are removed. Then the signal takes its course.
#pragma once

#include <sys/types.h>

#include <atomic>

namespace runenv {

// Only one of each at a time. The name belongs to whoever stores it.
extern std::atomic<const char*> interrupted_file;        // null: none
extern std::atomic<const char*> interrupted_tool_input;  // a file made for the tool; null: none
extern std::atomic<pid_t> interrupted_tool;              // 0: none

// From here on, these signals undo what is stored above, except where the program was started with
// them ignored. Calling it again is harmless.
void undo_on_signals();

// Puts the signals off while one lives, for steps that must not be torn apart. A tool that works
// meanwhile gets them all the same, so that the program need not wait for it for long. Programs
// that are started meanwhile do not inherit that.
class SignalsHeld {
 public:
  SignalsHeld();
  ~SignalsHeld();
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;
};

}  // namespace runenv
