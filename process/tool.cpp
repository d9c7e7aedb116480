#include "process/tool.h"

#include "process/interruption.h"

namespace runenv {

ChildProcess::process_t* start_tool(const char* const* argv, ChildProcess::redirect_t in,
                                    ChildProcess::redirect_t out, ChildProcess::redirect_t err,
                                    const char* cwd) {
  const SignalsHeld delayed;
  ChildProcess::process_t* const tool =
      ChildProcess::create_child(argv, in, out, err, cwd, false, true);
  interrupted_tool = tool->pid;
  return tool;
}

void end_tool(ChildProcess::process_t* tool) {
  ChildProcess::destroy(tool);
  interrupted_tool = 0;
}

}  // namespace runenv
