// External programs as child processes, with redirected standard streams.
//
// The usual order: create_child, any number of write and read calls, shutdown(CHANNEL_STDIN) to
// give the child its end of input, wait or wait2, then destroy, which every child needs.
//
// A record is used by one thread at a time, read_all by one thread at all. SIGPIPE is left to the
// program: writing to a child that no longer reads throws only where the program ignores it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

class Buffer;

// Child processes.
namespace ChildProcess {

// What a standard channel of the child is connected with.
enum redirect_mode_t : uint32_t {
  REDIRECT_INHERIT = 0,  // the child keeps the parent's descriptor, the parent gets nothing
  REDIRECT_PIPE = 1,     // a new pipe, one end for each side
  REDIRECT_FILE = 2,     // the file `path`, opened once for each side
};

// What becomes of one standard channel.
struct redirect_t {
  redirect_mode_t mode;  // what it is connected with
  const char* path;      // for REDIRECT_FILE: read as input, created or emptied as output and error
};

// The standard channels of a child.
enum channel_t : uint32_t { CHANNEL_STDIN = 0, CHANNEL_STDOUT = 1, CHANNEL_STDERR = 2 };

// The parent's side of one channel; the mode turns to REDIRECT_INHERIT when it is shut down.
struct channel_record_t {
  redirect_mode_t mode;  // what it is connected with
  int32_t fd;            // -1 if none
};

// A child, owned by the caller from create_child to destroy.
struct process_t {
  int32_t pid;           // the process id
  uint32_t new_group;    // 1 if the child has a process group of its own
  channel_record_t in;   // for writing
  channel_record_t out;  // for reading, non-blocking
  channel_record_t err;  // for reading, non-blocking
  int32_t status;        // as waitpid stores it; -1 after a failed wait
  bool reaped;           // the exit has been collected, `status` is final
};
static_assert(offsetof(process_t, in) == 8 && offsetof(process_t, out) == 16 &&
              offsetof(process_t, err) == 24 && offsetof(process_t, status) == 32 &&
              offsetof(process_t, reaped) == 36 && sizeof(process_t) == 40);

// How a child has ended.
struct result_t {
  int32_t kind;         // 0 success, 1 a non-zero exit status, 2 a signal or no known status
  int32_t code;         // 0, the exit status, the signal number, or -1
  std::string message;  // "Success", "Failure", or what the system says
};

// Starts argv[0], looked up on PATH, with the null-terminated `argv`, in the directory `cwd` (null:
// the parent's) and, with `new_group`, in a process group of its own. With `ends_with_parent` the
// kernel kills the child when the thread that started it ends, in whatever way.
//
// Throws Error with the system's text when the child cannot be made or the program cannot be
// executed. A step in between that fails, such as entering `cwd`, is told by the child on its
// standard error, and it ends with status 1. A start takes the same time however much memory the
// parent uses.
process_t* create_child(const char* const* argv, redirect_t in, redirect_t out, redirect_t err,
                        const char* cwd, bool new_group, bool ends_with_parent = false);

// Whether the child still runs; never waits.
bool is_alive(process_t* process);

// Sends SIGTERM to the child, or to its whole group if it has one of its own. Returns true if it
// was sent. `kill` sends nothing to a child whose exit has been collected.
bool kill(process_t* process);
bool kill_job(process_t* process);

// Waits for the child's end. `wait` returns 0, the exit status, the negated signal number, or -1.
// A second call returns the same without waiting.
result_t wait2(process_t* process);
int wait(process_t* process);

// Writes all `len` bytes, or the text, to the child's input; nothing if that is not redirected or
// shut down already. Throws Error with the system's text.
void write_len(process_t* process, const char* data, unsigned int len);
void write(process_t* process, const char* text);

// Reads what is there, up to `len` bytes: 0 when nothing is ready, at the end of the output, and
// for a channel that is not redirected; -1 on error.
int read(process_t* process, channel_t channel, char* buffer, unsigned int len);

// Appends all output of one channel to `target` until its end and the child's exit. The other
// channel is not drained meanwhile. Throws Error with the system's text.
void read_all(process_t* process, channel_t channel, Buffer& target);

// Closes the parent's end of a channel.
void shutdown(process_t* process, channel_t channel);

// Releases the record. A child that still runs gets SIGTERM, and SIGCONT in case it is stopped. It
// is waited for, so one that ignores SIGTERM makes this wait for its end.
void destroy(process_t* process);

}  // namespace ChildProcess
