#include "tools/run_tool.h"

#include <unistd.h>

#include <cstdlib>

#include "core/error.h"
#include "core/owner.h"
#include "process/tool.h"
#include "tools/failure.h"
#include "tools/published_name.h"

namespace runenv {

static ChildProcess::redirect_t redirect(const char* file) {
  if (file == nullptr) {
    return {ChildProcess::REDIRECT_INHERIT, nullptr};
  }
  // /dev or /proc may be missing. A redirection that fails would look like a failure of the
  // program.
  if (access(file, F_OK) != 0) {
    throw_errno_of(file);
  }
  return {ChildProcess::REDIRECT_FILE, file};
}

void run_tool(const std::vector<const char*>& argv, const char* in, const char* out,
              const fs::path_t& subject, const std::string& problem) {
  using namespace ChildProcess;
  const redirect_t input = redirect(in);
  const redirect_t output = redirect(out);
  unsetenv("TAR_OPTIONS");  // an archive is what its files make it, and so is a release
  owner<process_t, end_tool> tool;
  try {
    tool.reset(start_tool(argv.data(), input, output, {REDIRECT_INHERIT, nullptr}, nullptr));
  } catch (const Error& error) {
    throw_failure_of(argv[0], error.message);
  }
  const result_t result = wait2(tool.get());
  if (result.kind != 0) {
    const bool exited = result.kind == 1;
    throw_failure_of(subject.cstring(),
                     problem + " (" + std::string(last_component(argv[0])) + ": " +
                         (exited ? "exit status " + std::to_string(result.code) : result.message) +
                         ")");
  }
}

}  // namespace runenv
