// Runs a filter program such as sort on a text.

#include <csignal>
#include <cstdio>
#include <memory>

#include "core/buffer.h"
#include "core/error.h"
#include "process/child_process.h"

// Runs the program with `text` as its input and appends its output to `output`.
static ChildProcess::result_t run(const char* const* words, const char* text, Buffer& output) {
  using namespace ChildProcess;
  const std::unique_ptr<process_t, void (*)(process_t*)> child(
      create_child(words, {REDIRECT_PIPE, nullptr}, {REDIRECT_PIPE, nullptr},
                   {REDIRECT_INHERIT, nullptr}, nullptr, false),
      destroy);
  write(child.get(), text);
  shutdown(child.get(), CHANNEL_STDIN);  // otherwise a filter would wait for more input
  read_all(child.get(), CHANNEL_STDOUT, output);
  return wait2(child.get());
}

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fputs("usage: processes TEXT PROGRAM [ARGUMENT...]\n", stderr);
    return 1;
  }
  std::signal(SIGPIPE, SIG_IGN);  // so that writing to a child that has ended throws
  Buffer output(0);
  try {
    const ChildProcess::result_t result = run(argv + 2, argv[1], output);
    std::printf("%.*s%s (%d)\n", static_cast<int>(output.length()), output.get_unmanaged_array(),
                result.message.c_str(), result.code);
    return result.kind == 0 ? 0 : 1;
  } catch (const Error& error) {  // the program does not exist, or writing its input failed
    std::fprintf(stderr, "processes: %s: %s\n", argv[2], error.message);
    return 1;
  }
}
