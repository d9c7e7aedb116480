// create_child: starting a child process.

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "core/failure.h"
#include "core/owner.h"
#include "core/retry.h"
#include "process/child_process.h"
#include "runtime/runtime_core.h"

namespace ChildProcess {

using runenv::throw_system_failure;
using runenv::unique_fd;

namespace {

// Both ends of a channel, -1 if it is inherited. All descriptors opened here are close-on-exec, so
// that no child inherits them by accident.
struct Ends {
  int read_end = -1;
  int write_end = -1;
};

// The same ends by the side that uses them. The destructor closes them.
struct Channel {
  unique_fd child_end;
  unique_fd own_end;
};

// What to start and how.
struct Launch {
  const char* const* argv;
  const char* cwd;
  bool new_group;
  bool ends_with_parent;
  Channel in;
  Channel out;
  Channel err;
  pid_t parent = getpid();
  sigset_t mask = {};           // the parent's signal mask
  volatile int exec_error = 0;  // set by the child
};

}  // namespace

// Moves a descriptor above the standard ones. If the program has closed a standard descriptor, a
// new one may get its number, and redirecting one channel would overwrite the end of another.
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
  return above_standard(runenv::retry([&] { return open(path, flags | O_CLOEXEC, 0777); }));
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

// Opens the file twice, so that each side has its own file position.
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

// Everything from here to run_child runs in the child, which shares the parent's memory. The parent
// is suspended until the child calls exec or _exit. exit would flush the parent's buffers.
[[noreturn]] static void exit_child(const char* format) {
  Runtime.error(format, std::strerror(errno));
  _exit(1);
}

static void redirect_child(const Channel& channel, int to, const char* format) {
  const int from = channel.child_end.get();
  if (from >= 0 && dup2(from, to) < 0) {
    exit_child(format);
  }
}

// Makes the kernel kill the child when its parent ends, and exits if the parent has already ended.
// The id of a parent in another process namespace is 0.
static void end_with_parent(pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const pid_t now = getppid();
  if (now != parent && now != 0) {
    _exit(1);
  }
}

// Removes the parent's signal handlers: in the child they would modify the parent's memory.
static void drop_handlers() {
  struct sigaction action;
  for (int signal = 1; signal < NSIG; ++signal) {
    if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_DFL &&
        action.sa_handler != SIG_IGN) {
      std::signal(signal, SIG_DFL);
    }
  }
}

// Signals stay blocked until right before exec: one that ends or stops the child could leave the
// parent's heap inconsistent, or the parent suspended. No exception may leave this function either.
[[noreturn]] static void run_child(Launch* launch) noexcept {
  drop_handlers();
  if (launch->ends_with_parent) {
    end_with_parent(launch->parent);
  }
  redirect_child(launch->in, STDIN_FILENO, "Failed to duplicate stdin: %s\n");
  redirect_child(launch->out, STDOUT_FILENO, "Failed to duplicate stdout: %s\n");
  redirect_child(launch->err, STDERR_FILENO, "Failed to duplicate stderr: %s\n");
  if (launch->cwd != nullptr && chdir(launch->cwd) != 0) {
    exit_child("Failed to set working directory: %s\n");
  }
  if (launch->new_group && setpgid(0, 0) != 0) {
    exit_child("Failed to set process group: %s\n");
  }
  sigprocmask(SIG_SETMASK, &launch->mask, nullptr);
  execvp(launch->argv[0], const_cast<char* const*>(launch->argv));
  launch->exec_error = errno;
  _exit(launch->exec_error);
}

// Returns the child's id once its program runs or it has exited. vfork does not copy the parent's
// page tables, so the time does not depend on the parent's memory use.
static pid_t start_child(Launch* launch) {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &launch->mask);
  const pid_t pid = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork)
  if (pid == 0) {
    run_child(launch);  // NOLINT(clang-analyzer-unix.Vfork)
  }
  const int error_number = errno;
  pthread_sigmask(SIG_SETMASK, &launch->mask, nullptr);
  if (pid < 0) {
    throw_system_failure(error_number);
  }
  return pid;
}

static void keep_output(channel_record_t* channel, unique_fd own_end) {
  channel->fd = own_end.release();
  if (channel->fd >= 0) {
    fcntl(channel->fd, F_SETFL, fcntl(channel->fd, F_GETFL) | O_NONBLOCK);
  }
}

process_t* create_child(const char* const* argv, redirect_t in, redirect_t out, redirect_t err,
                        const char* cwd, bool new_group, bool ends_with_parent) {
  // If a later channel throws, the descriptors of an earlier one stay open. Kept on purpose:
  // callers treat this as fatal.
  const int output_flags = O_RDONLY | O_CREAT | O_TRUNC;
  const Ends in_ends = prepare(in, O_RDONLY);
  const Ends out_ends = prepare(out, output_flags);
  const Ends err_ends = prepare(err, output_flags);
  Launch launch{.argv = argv,
                .cwd = cwd,
                .new_group = new_group,
                .ends_with_parent = ends_with_parent,
                .in = {unique_fd(in_ends.read_end), unique_fd(in_ends.write_end)},
                .out = {unique_fd(out_ends.write_end), unique_fd(out_ends.read_end)},
                .err = {unique_fd(err_ends.write_end), unique_fd(err_ends.read_end)}};

  auto process = std::make_unique<process_t>(process_t{.pid = -1,
                                                       .new_group = new_group ? 1U : 0U,
                                                       .in = {in.mode, -1},
                                                       .out = {out.mode, -1},
                                                       .err = {err.mode, -1},
                                                       .status = 0,
                                                       .reaped = false});
  std::fflush(stderr);  // otherwise the child could print the parent's buffered text
  process->pid = start_child(&launch);
  if (launch.exec_error != 0) {
    destroy(process.release());
    throw_system_failure(launch.exec_error);
  }
  process->in.fd = launch.in.own_end.release();
  keep_output(&process->out, std::move(launch.out.own_end));
  keep_output(&process->err, std::move(launch.err.own_end));
  return process.release();
}

}  // namespace ChildProcess
