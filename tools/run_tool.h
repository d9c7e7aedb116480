// Runs another program, such as tar or minisign, and waits for it.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "fs/path.h"

namespace runenv {

inline constexpr char kNoFile[] = "/dev/null";

// Functions that run_tool calls while the tool runs.
struct ToolWatch {
  std::function<void(std::string_view)> line =
      {};                                // gets each line of its output, instead of `out`
  std::function<void(pid_t)> tick = {};  // is called at least a few times in a second
};

// Runs the program words[0] with the other words as its arguments and waits for its end. Its
// standard input is the file `in` and its standard output the file `out`; if one is null, the
// program inherits it. Removes TAR_OPTIONS from the environment. Throws Error "SUBJECT: PROBLEM
// (PROGRAM: WHY)" if the program fails, "PROGRAM: WHY" if it cannot be started.
void run_tool(const std::vector<std::string>& words, const char* in, const char* out,
              const fs::path_t& subject, const std::string& problem, const ToolWatch& watch = {});

}  // namespace runenv
