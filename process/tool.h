// Internal: a tool that works for the program, one at a time. Whatever ends the program ends the
// tool.
#pragma once

#include "process/child_process.h"

namespace runenv {

// As ChildProcess::create_child, which throws Error. A signal that the program undoes its work on
// (undo_on_signals) ends the tool and waits for it first, and any other end of the program kills
// it.
ChildProcess::process_t* start_tool(const char* const* argv, ChildProcess::redirect_t in,
                                    ChildProcess::redirect_t out, ChildProcess::redirect_t err,
                                    const char* cwd);

// As ChildProcess::destroy.
void end_tool(ChildProcess::process_t* tool);

}  // namespace runenv
