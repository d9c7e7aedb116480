// Running a program that works for this one: tar, minisign.
#pragma once

#include <string>
#include <vector>

#include "fs/path.h"

namespace runenv {

inline constexpr char kNoFile[] = "/dev/null";

// Runs the program argv[0] with the arguments behind it, up to a null, to its end. Its standard
// input is the file `in` and its standard output the file `out`; null stands for those of this
// program. TAR_OPTIONS does not reach it. Throws Error "SUBJECT: PROBLEM (PROGRAM: WHY)" if the
// program fails, "PROGRAM: WHY" if it cannot be started.
void run_tool(const std::vector<const char*>& argv, const char* in, const char* out,
              const fs::path_t& subject, const std::string& problem);

}  // namespace runenv
