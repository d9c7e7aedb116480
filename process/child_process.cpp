#include "process/child_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "core/buffer.h"
#include "core/failure.h"
#include "core/retry.h"
#include "runtime/runtime_core.h"

namespace ChildProcess {

static char read_buffer[5 * 1024 * 1024];
static constexpr int kRoomyPipe = 1024 * 1024;  // bytes; the usual limit without privileges

static pid_t wait_for_exit(process_t* process, int options) {
  return runenv::retry([&] { return waitpid(process->pid, &process->status, options); });
}

// Reaps the child if it has ended. Returns true if it has ended. A child that cannot be waited for
// counts as dead.
static bool has_ended(process_t* process) {
  if (process->reaped) {
    return true;
  }
  const pid_t waited = wait_for_exit(process, WNOHANG);
  if (waited == 0) {
    return false;
  }
  if (waited < 0) {
    Runtime.error("Wait failed, assuming child is dead: %s\n", std::strerror(errno));
    process->status = -1;
  }
  process->reaped = true;
  return true;
}

bool is_alive(process_t* process) {
  return !has_ended(process);
}

bool kill(process_t* process) {
  // Once the child is reaped, another process may have its id.
  return !process->reaped && ::kill(process->pid, SIGTERM) == 0;
}

bool kill_job(process_t* process) {
  // A group keeps its id as long as it has members, so it may be signalled after the child's end.
  return process->new_group != 0 && ::kill(-process->pid, SIGTERM) == 0;
}

result_t wait2(process_t* process) {
  if (!process->reaped) {
    if (wait_for_exit(process, 0) != process->pid) {
      return {2, -1, std::strerror(errno)};
    }
    process->reaped = true;
  }
  const int status = process->status;
  if (WIFEXITED(status)) {
    const int exit_status = WEXITSTATUS(status);
    return exit_status == 0 ? result_t{0, 0, "Success"} : result_t{1, exit_status, "Failure"};
  }
  if (WIFSIGNALED(status)) {
    return {2, WTERMSIG(status), strsignal(WTERMSIG(status))};
  }
  return {2, -1, "Child process status unknown"};
}

int wait(process_t* process) {
  const result_t result = wait2(process);
  switch (result.kind) {
    case 0:
      return 0;
    case 1:
      return result.code;
    case 2:
      return result.code < 0 ? result.code : -result.code;
    default:
      return -1;
  }
}

static void write_all(process_t* process, const char* data, size_t len) {
  if (process->in.mode == REDIRECT_INHERIT) {
    return;
  }
  while (len != 0) {
    const ssize_t n = ::write(process->in.fd, data, len);
    if (n >= 0) {
      data += n;
      len -= static_cast<size_t>(n);
    } else if (errno != EAGAIN && errno != EINTR) {
      runenv::throw_system_failure(errno);
    }
  }
}

void write_len(process_t* process, const char* data, unsigned int len) {
  write_all(process, data, len);
}

void write(process_t* process, const char* text) {
  write_all(process, text, std::strlen(text));
}

static channel_record_t* channel_of(process_t* process, channel_t channel) {
  switch (channel) {
    case CHANNEL_STDIN:
      return &process->in;
    case CHANNEL_STDOUT:
      return &process->out;
    case CHANNEL_STDERR:
      break;
  }
  return &process->err;
}

static bool is_readable(process_t* process, channel_t channel) {
  return channel != CHANNEL_STDIN && channel_of(process, channel)->mode != REDIRECT_INHERIT;
}

static ssize_t read_some(int fd, char* buffer, size_t len) {
  return runenv::retry([&] { return ::read(fd, buffer, len); });
}

int read(process_t* process, channel_t channel, char* buffer, unsigned int len) {
  if (!is_readable(process, channel)) {
    return 0;
  }
  const ssize_t n = read_some(channel_of(process, channel)->fd, buffer, len);
  if (n < 0) {
    return errno == EAGAIN ? 0 : -1;
  }
  return static_cast<int>(n);
}

void read_all(process_t* process, channel_t channel, Buffer& target) {
  if (!is_readable(process, channel)) {
    return;
  }
  const int fd = channel_of(process, channel)->fd;
  // A larger pipe gives more bytes per read. If this fails, the pipe keeps its size.
  fcntl(fd, F_SETPIPE_SZ, kRoomyPipe);
  for (;;) {
    const ssize_t n = read_some(fd, read_buffer, sizeof read_buffer);
    if (n > 0) {
      target.append(read_buffer, static_cast<unsigned long long>(n));
    } else if (n == 0) {
      // The child may still write to a file. Only an end of file after its exit is final.
      if (process->reaped) {
        return;
      }
      has_ended(process);
    } else if (errno != EAGAIN) {  // on EAGAIN, read again at once, on purpose
      runenv::throw_system_failure(errno);
    }
  }
}

static void close_channel(channel_record_t* channel) {
  if (channel->mode != REDIRECT_INHERIT) {
    if (channel->fd >= 0) {
      close(channel->fd);
    }
    *channel = {REDIRECT_INHERIT, -1};
  }
}

void shutdown(process_t* process, channel_t channel) {
  close_channel(channel_of(process, channel));
}

void destroy(process_t* process) {
  if (!has_ended(process)) {
    kill(process);
    ::kill(process->pid, SIGCONT);  // a stopped child would not handle SIGTERM
    wait2(process);
  }
  close_channel(&process->in);
  close_channel(&process->out);
  close_channel(&process->err);
  delete process;
}

}  // namespace ChildProcess
