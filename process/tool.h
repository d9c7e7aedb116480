// Internal: running an external tool, one at a time. The tool never outlives the program.
#pragma once

#include "process/child_process.h"

namespace runenv {

// Like ChildProcess::create_child; throws Error. The signals of undo_on_signals first end the tool
// and wait for it. If the program ends in another way, the kernel kills the tool.
ChildProcess::process_t* start_tool(const char* const* argv, ChildProcess::redirect_t in,
                                    ChildProcess::redirect_t out, ChildProcess::redirect_t err,
                                    const char* cwd);

// Like ChildProcess::destroy.
void end_tool(ChildProcess::process_t* tool);

}  // namespace runenv
