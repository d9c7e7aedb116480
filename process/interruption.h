// What is undone when SIGINT, SIGTERM or SIGHUP ends the program: a temporary file is removed and a
// tool that runs for the program is ended. Then the signal takes its course.
#pragma once

#include <sys/types.h>

#include <atomic>

// Only one file and one tool at a time. The name belongs to whoever stores it.
extern std::atomic<const char*> interrupted_file;  // null: none
extern std::atomic<pid_t> interrupted_tool;        // 0: none

// From here on, signals that are not ignored already undo what is stored above, and a write beyond
// the limit on the size of files fails instead of ending the program.
void undo_on_signals();

// Puts the signals off while it lives, for steps that must not be torn apart. Programs that are
// started meanwhile do not inherit that.
class SignalsHeld {
 public:
  SignalsHeld();
  ~SignalsHeld();
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;
};
