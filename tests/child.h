// A child process of a test: a program, or the shell with a script. It ends with the test, and so
// does its process group, if it has its own.
#pragma once

#include <csignal>

#include "core/owner.h"
#include "process/child_process.h"

inline constexpr ChildProcess::redirect_t kInherit{ChildProcess::REDIRECT_INHERIT, nullptr};

class Child {
 public:
  Child(const char* program, const char* script, ChildProcess::redirect_t in = kInherit,
        ChildProcess::redirect_t out = kInherit, ChildProcess::redirect_t err = kInherit,
        const char* cwd = nullptr, bool new_group = false) {
    const char* const argv[] = {program, script == nullptr ? nullptr : "-c", script, nullptr};
    record.reset(ChildProcess::create_child(argv, in, out, err, cwd, new_group, true));
  }
  operator ChildProcess::process_t*() const { return record.get(); }
  ChildProcess::process_t* operator->() const { return record.get(); }

 private:
  static void end(ChildProcess::process_t* child) {
    if (child->new_group != 0 && !child->reaped) kill(-child->pid, SIGKILL);
    ChildProcess::destroy(child);
  }
  runenv::owner<ChildProcess::process_t, end> record;
};
