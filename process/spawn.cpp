// Starting a child: create_child.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/error.h"
#include "core/unique_fd.h"
#include "process/child_process.h"
#include "runtime/runtime_core.h"

namespace ChildProcess {

// Both ends of a channel, -1 where it is inherited. All descriptors made here are close-on-exec:
// exec closes them in the child, and no other child ever gets them.
struct Ends {
  int read_end = -1;
  int write_end = -1;
};

// Moves a descriptor above the standard ones, which a program may have closed: redirecting one
// channel must not run over the end of another.
static int above_standard(int fd) {
  if (fd > STDERR_FILENO || fd < 0) {
    return fd;
  }
  const unique_fd low(fd);
  const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (moved < 0) {
    throw_system_failure(errno);
  }
  return moved;
}

static int open_file(const char* path, int flags) {
  int fd;
  do {
    fd = open(path, flags | O_CLOEXEC, 0777);
  } while (fd < 0 && errno == EINTR);
  return above_standard(fd);
}

static Ends open_pipe() {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) {
    throw_system_failure(errno);
  }
  unique_fd write_end(fds[1]);
  unique_fd read_end(above_standard(fds[0]));
  const int moved = above_standard(write_end.release());
  return {read_end.release(), moved};
}

// Opens the file twice, so that each side has a position of its own.
static Ends open_both_sides(const char* path, int base_flags) {
  unique_fd read_end(open_file(path, base_flags));
  if (read_end.get() < 0) {
    throw_system_failure(errno);
  }
  const int write_end = open_file(path, base_flags | O_WRONLY);
  if (write_end < 0) {
    throw_system_failure(errno);
  }
  return {read_end.release(), write_end};
}

static Ends prepare(const redirect_t& redirect, int base_flags) {
  switch (redirect.mode) {
    case REDIRECT_PIPE:
      return open_pipe();
    case REDIRECT_FILE:
      return open_both_sides(redirect.path, base_flags);
    case REDIRECT_INHERIT:
      break;
  }
  return {};
}

static void close_ends(const Ends& ends) {
  if (ends.read_end >= 0) {
    close(ends.read_end);
    close(ends.write_end);
  }
}

// Everything from here to run_child is the child's. It leaves by _exit: what the parent has
// buffered is the parent's to write.
[[noreturn]] static void fail_child(const char* format) {
  Runtime.error(format, std::strerror(errno));
  _exit(1);
}

static void redirect_child(int from, int to, const char* format) {
  if (from >= 0 && dup2(from, to) < 0) {
    fail_child(format);
  }
}

[[noreturn]] static void run_child(const char* const* argv, const Ends& in, const Ends& out,
                                   const Ends& err, const char* cwd, bool new_group,
                                   int status_fd) {
  redirect_child(in.read_end, STDIN_FILENO, "Failed to duplicate stdin: %s\n");
  redirect_child(out.write_end, STDOUT_FILENO, "Failed to duplicate stdout: %s\n");
  redirect_child(err.write_end, STDERR_FILENO, "Failed to duplicate stderr: %s\n");
  if (cwd != nullptr && chdir(cwd) != 0) {
    fail_child("Failed to set working directory: %s\n");
  }
  if (new_group && setpgid(0, 0) != 0) {
    fail_child("Failed to set process group: %s\n");
  }
  execvp(argv[0], const_cast<char* const*>(argv));
  const int32_t error_number = errno;
  // This fails only when the parent is gone, and then nobody needs to know.
  [[maybe_unused]] const ssize_t n = ::write(status_fd, &error_number, sizeof error_number);
  _exit(error_number);
}

// The errno of a failed exec, 0 when the program runs: exec closes the status pipe.
static int read_exec_status(int status_fd) {
  int32_t error_number = 0;
  ssize_t n;
  do {
    n = ::read(status_fd, &error_number, sizeof error_number);
  } while (n < 0 && errno == EINTR);
  return n < 0 ? errno : error_number;
}

static void keep_end(channel_record_t* channel, int own_end, int child_end, bool non_blocking) {
  if (own_end < 0) {
    return;
  }
  close(child_end);
  channel->fd = own_end;
  if (non_blocking) {
    fcntl(own_end, F_SETFL, fcntl(own_end, F_GETFL) | O_NONBLOCK);
  }
}

process_t* create_child(const char* const* argv, redirect_t in, redirect_t out, redirect_t err,
                        const char* cwd, bool new_group) {
  const Ends status = open_pipe();
  unique_fd status_read(status.read_end);
  unique_fd status_write(status.write_end);

  // What an earlier channel has opened stays open when a later one throws: kept as it is, callers
  // treat that as fatal.
  const int output_flags = O_RDONLY | O_CREAT | O_TRUNC;
  const Ends in_ends = prepare(in, O_RDONLY);
  const Ends out_ends = prepare(out, output_flags);
  const Ends err_ends = prepare(err, output_flags);

  std::fflush(stderr);  // the child may write to it: buffered text must not come out twice
  const pid_t pid = fork();
  if (pid == 0) {
    run_child(argv, in_ends, out_ends, err_ends, cwd, new_group, status_write.get());
  }
  const auto close_all = [&] {
    close_ends(in_ends);
    close_ends(out_ends);
    close_ends(err_ends);
  };
  if (pid < 0) {
    const int error_number = errno;
    close_all();
    throw_system_failure(error_number);
  }
  auto* process = new process_t{
      pid, new_group ? 1U : 0U, {in.mode, -1}, {out.mode, -1}, {err.mode, -1}, 0, false};
  status_write.reset();
  const int exec_error = read_exec_status(status_read.get());
  if (exec_error != 0) {
    close_all();
    destroy(process);
    throw_system_failure(exec_error);
  }
  keep_end(&process->in, in_ends.write_end, in_ends.read_end, false);
  keep_end(&process->out, out_ends.read_end, out_ends.write_end, true);
  keep_end(&process->err, err_ends.read_end, err_ends.write_end, true);
  return process;
}

}  // namespace ChildProcess
