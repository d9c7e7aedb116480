// External programs as child processes, with redirected standard streams.
//
// The usual order of calls is create_child, write and read, shutdown(CHANNEL_STDIN) to close the
// child's input, wait or wait2, destroy. Every child must be destroyed.
//
// Use a child from one thread at a time. read_all uses a static buffer: only one thread of the
// process may call it at a time. SIGPIPE is left to the program: writing to a child that no longer
// reads throws only if the program ignores SIGPIPE. The program must not ignore SIGCHLD or wait for
// all its children, because the exit status would be lost.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

class Buffer;

// Child processes.
namespace ChildProcess {

// What a standard channel of the child is connected to.
enum redirect_mode_t : uint32_t {
  REDIRECT_INHERIT = 0,  // the parent's descriptor; the parent gets no end of the channel
  REDIRECT_PIPE = 1,     // a new pipe between parent and child
  REDIRECT_FILE = 2,     // the file `path`, opened once for reading and once for writing
};

// How to redirect one standard channel. A file must be readable and writable, whichever channel it
// is for.
struct redirect_t {
  redirect_mode_t mode;  // what to connect it to
  const char* path;      // for REDIRECT_FILE; created or emptied for standard output and error
};

// The standard channels of a child.
enum channel_t : uint32_t { CHANNEL_STDIN = 0, CHANNEL_STDOUT = 1, CHANNEL_STDERR = 2 };

// The parent's end of one channel.
struct channel_record_t {
  redirect_mode_t mode;  // REDIRECT_INHERIT after shutdown
  int32_t fd;            // -1 if none
};

// A child process. The caller owns it from create_child until destroy.
struct process_t {
  int32_t pid;           // the process id
  uint32_t new_group;    // 1 if the child leads its own process group
  channel_record_t in;   // for writing
  channel_record_t out;  // for reading, non-blocking
  channel_record_t err;  // for reading, non-blocking
  int32_t status;        // as waitpid stores it; -1 if waitpid failed and the child counts as dead
  bool reaped;           // the child has ended; `status` is final
};
static_assert(offsetof(process_t, in) == 8 && offsetof(process_t, out) == 16 &&
              offsetof(process_t, err) == 24 && offsetof(process_t, status) == 32 &&
              offsetof(process_t, reaped) == 36 && sizeof(process_t) == 40);

// How a child ended.
struct result_t {
  int32_t kind;         // 0 success, 1 non-zero exit status, 2 signal or unknown status
  int32_t code;         // 0, the exit status, the signal number, or -1
  std::string message;  // "Success", "Failure", or the system's text
};

// Starts the program argv[0], which is searched for in PATH, with the arguments `argv`. A null
// pointer must end `argv` and must not be its first element. The child runs in the directory `cwd`
// (null: the parent's). With `new_group` it gets its own process group. With `ends_with_parent` the
// kernel kills the child when the thread that started it ends for any reason.
//
// Throws Error with the system's text if the child cannot be created or the program cannot be
// executed. If the child fails between these steps, for example to enter `cwd`, it prints the
// reason to its standard error and exits with status 1. The time to start a child does not depend
// on the parent's memory use.
process_t* create_child(const char* const* argv, redirect_t in, redirect_t out, redirect_t err,
                        const char* cwd, bool new_group, bool ends_with_parent = false);

// Returns whether the child is still running. Does not block.
bool is_alive(process_t* process);

// Send SIGTERM and return true if it was sent. `kill` sends it to the child, unless that has been
// reaped. `kill_job` sends it to the child's process group, if it has its own.
bool kill(process_t* process);
bool kill_job(process_t* process);

// Block until the child ends. If it reads its input to the end, close that first. `wait` returns 0,
// the exit status, the negated signal number, or -1. Once the child is reaped, further calls return
// the same result at once.
result_t wait2(process_t* process);
int wait(process_t* process);

// Write all `len` bytes, or the string, to the child's input. Block while its pipe is full. Do
// nothing if the input is not redirected or is shut down. Throw Error with the system's text on
// failure.
void write_len(process_t* process, const char* data, unsigned int len);
void write(process_t* process, const char* text);

// Reads up to `len` bytes and returns how many. Does not block. Returns 0 if nothing is ready, at
// the end of the output, and for a channel that is not redirected. Returns -1 on error.
int read(process_t* process, channel_t channel, char* buffer, unsigned int len);

// Appends all output of one channel to `target`. Blocks until the channel is at its end and the
// child has exited. Meanwhile it tries to read all the time, which keeps a processor busy, and does
// not read the other channel. Throws Error with the system's text on failure.
void read_all(process_t* process, channel_t channel, Buffer& target);

// Closes the parent's end of a channel.
void shutdown(process_t* process, channel_t channel);

// Frees the record and closes all channels. If the child is still running, this sends SIGTERM, and
// SIGCONT in case the child is stopped, and blocks until the child ends. A child may ignore
// SIGTERM.
void destroy(process_t* process);

}  // namespace ChildProcess
