// Starting a child: create_child.

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

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

// The same ends by the side that uses them; what is not released is closed.
struct Channel {
  unique_fd child_end;
  unique_fd own_end;
};

// What to start, and how.
struct Launch {
  const char* const* argv;
  const char* cwd;
  bool new_group;
  Channel in;
  Channel out;
  Channel err;
};

static bool add_redirect(posix_spawn_file_actions_t* actions, const Channel& channel, int to) {
  const int from = channel.child_end.get();
  return from < 0 || posix_spawn_file_actions_adddup2(actions, from, to) == 0;
}

// The quick way, which copies nothing of the parent: true when the program runs. Which step failed
// otherwise, it cannot tell.
static bool spawn_child(const Launch& launch, pid_t* pid) {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_init(&actions);
  posix_spawnattr_init(&attributes);  // its process group is 0: one of the child's own
  const bool started =
      add_redirect(&actions, launch.in, STDIN_FILENO) &&
      add_redirect(&actions, launch.out, STDOUT_FILENO) &&
      add_redirect(&actions, launch.err, STDERR_FILENO) &&
      (launch.cwd == nullptr || posix_spawn_file_actions_addchdir_np(&actions, launch.cwd) == 0) &&
      (!launch.new_group || posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP) == 0) &&
      posix_spawnp(pid, launch.argv[0], &actions, &attributes,
                   const_cast<char* const*>(launch.argv), environ) == 0;
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return started;
}

// Everything from here to run_child is a forked child's. It leaves by _exit: what the parent has
// buffered is the parent's to write.
[[noreturn]] static void fail_child(const char* format) {
  Runtime.error(format, std::strerror(errno));
  _exit(1);
}

static void redirect_child(const Channel& channel, int to, const char* format) {
  const int from = channel.child_end.get();
  if (from >= 0 && dup2(from, to) < 0) {
    fail_child(format);
  }
}

[[noreturn]] static void run_child(const Launch& launch, int status_fd) {
  redirect_child(launch.in, STDIN_FILENO, "Failed to duplicate stdin: %s\n");
  redirect_child(launch.out, STDOUT_FILENO, "Failed to duplicate stdout: %s\n");
  redirect_child(launch.err, STDERR_FILENO, "Failed to duplicate stderr: %s\n");
  if (launch.cwd != nullptr && chdir(launch.cwd) != 0) {
    fail_child("Failed to set working directory: %s\n");
  }
  if (launch.new_group && setpgid(0, 0) != 0) {
    fail_child("Failed to set process group: %s\n");
  }
  execvp(launch.argv[0], const_cast<char* const*>(launch.argv));
  const int32_t error_number = errno;
  // This fails only when the parent is gone, and then nobody needs to know.
  [[maybe_unused]] const ssize_t n = ::write(status_fd, &error_number, sizeof error_number);
  _exit(error_number);
}

// 0 when the program runs: exec closes the status pipe.
static int read_exec_status(int status_fd) {
  int32_t error_number = 0;
  ssize_t n;
  do {
    n = ::read(status_fd, &error_number, sizeof error_number);
  } while (n < 0 && errno == EINTR);
  return n < 0 ? errno : error_number;
}

// The slow way, for what the quick one cannot do: the child takes the steps one by one and prints
// which of them failed, and a script without "#!" goes to the shell. Answers the errno of a failed
// exec, 0 when the program runs.
static int fork_child(const Launch& launch, Channel status, pid_t* pid) {
  *pid = fork();
  if (*pid == 0) {
    run_child(launch, status.child_end.get());
  }
  if (*pid < 0) {
    throw_system_failure(errno);
  }
  status.child_end.reset();
  return read_exec_status(status.own_end.get());
}

static void keep_output(channel_record_t* channel, unique_fd own_end) {
  channel->fd = own_end.release();
  if (channel->fd >= 0) {
    fcntl(channel->fd, F_SETFL, fcntl(channel->fd, F_GETFL) | O_NONBLOCK);
  }
}

process_t* create_child(const char* const* argv, redirect_t in, redirect_t out, redirect_t err,
                        const char* cwd, bool new_group) {
  const Ends status_ends = open_pipe();
  Channel status{unique_fd(status_ends.write_end), unique_fd(status_ends.read_end)};

  // What an earlier channel has opened stays open when a later one throws: kept as it is, callers
  // treat that as fatal.
  const int output_flags = O_RDONLY | O_CREAT | O_TRUNC;
  const Ends in_ends = prepare(in, O_RDONLY);
  const Ends out_ends = prepare(out, output_flags);
  const Ends err_ends = prepare(err, output_flags);
  Launch launch{argv,
                cwd,
                new_group,
                {unique_fd(in_ends.read_end), unique_fd(in_ends.write_end)},
                {unique_fd(out_ends.write_end), unique_fd(out_ends.read_end)},
                {unique_fd(err_ends.write_end), unique_fd(err_ends.read_end)}};

  auto process = std::make_unique<process_t>(
      process_t{-1, new_group ? 1U : 0U, {in.mode, -1}, {out.mode, -1}, {err.mode, -1}, 0, false});
  std::fflush(stderr);  // the child may write to it: buffered text must not come out twice
  if (!spawn_child(launch, &process->pid)) {
    const int exec_error = fork_child(launch, std::move(status), &process->pid);
    if (exec_error != 0) {
      destroy(process.release());
      throw_system_failure(exec_error);
    }
  }
  process->in.fd = launch.in.own_end.release();
  keep_output(&process->out, std::move(launch.out.own_end));
  keep_output(&process->err, std::move(launch.err.own_end));
  return process.release();
}

}  // namespace ChildProcess
