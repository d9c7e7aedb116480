#include <fcntl.h>
#include <linux/close_range.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>
#include <tuple>

#include "core/buffer.h"
#include "core/error.h"
#include "process/interruption.h"
#include "process/tool.h"
#include "tests/child.h"
#include "tests/files.h"

using namespace ChildProcess;

static constexpr redirect_t kPipe{REDIRECT_PIPE, nullptr};

static std::string all_of(process_t* child, channel_t channel = CHANNEL_STDOUT) {
  Buffer output(0);
  read_all(child, channel, output);
  return {output.get_unmanaged_array(), output.length()};
}

static std::tuple<int, int, std::string> result_of(process_t* child) {
  const auto [kind, code, message] = wait2(child);
  return {kind, code, message};
}

// Checks that no test leaves a child. Signals interrupt every wait, and end a test that takes too
// long.
class ProcessTest : public ScratchTest {
 protected:
  ProcessTest() {
    setenv("PATH", "/usr/bin:/bin", 1);
    static volatile int ticks;
    ticks = 60000;
    struct sigaction action = {};  // without SA_RESTART
    action.sa_handler = [](int) {
      ticks = ticks - 1;
      if (ticks == 0) abort();
    };
    sigaction(SIGALRM, &action, nullptr);
    ualarm(1000, 1000);
    std::signal(SIGUSR1, SIG_IGN);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  }
  ~ProcessTest() override {
    EXPECT_TRUE(is_blocked(SIGUSR2) && !is_blocked(SIGALRM));
    ualarm(0, 0);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  }
  static bool is_blocked(int signal) {
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    return sigismember(&blocked, signal) == 1;
  }
  // For a forked process, which does not inherit the timer.
  static void limit_time() {
    std::signal(SIGALRM, SIG_DFL);
    alarm(60);
  }
};

TEST_F(ProcessTest, ResultsTellExitStatusAndSignal) {
  const std::tuple<const char*, int, std::tuple<int, int, std::string>> kRows[] = {
      {"exit 0", 0, {0, 0, "Success"}},
      {"exit 3", 3, {1, 3, "Failure"}},
      {"sleep 0.05; exit 255", 255, {1, 255, "Failure"}},
      {"kill -USR1 $$; kill -USR2 $$; exit 4", 4, {1, 4, "Failure"}},  // ignored, blocked
      {"kill -9 $$", -9, {2, 9, "Killed"}}};
  for (const auto& [script, folded, result] : kRows) {
    const Child child("sh", script);
    EXPECT_EQ(wait(child), folded) << script;
    child->pid = getpid();  // it was reaped, so its pid is not used any more
    EXPECT_EQ(result_of(child), result);
    EXPECT_FALSE(is_alive(child) || kill(child));
  }
}

// What the kernel does with a system call from now on. For dup2, only if the second argument is
// `argument`.
struct Replaced {
  unsigned call = ~0U, argument = 0, deed = SECCOMP_RET_ERRNO | EPERM;
  void start() const {
    const uint8_t any = call == SYS_dup2 ? 0 : 2;  // skips the check of the argument
    sock_filter code[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                          BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, any, 3),
                          BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[1])),
                          BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, argument, 0, 1),
                          BPF_STMT(BPF_RET | BPF_K, deed),
                          BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog program{std::size(code), code};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
  }
};

TEST_F(ProcessTest, EveryFailingStepOfAStartIsReportedOnce) {
  const std::string refused = ": Operation not permitted\n", none = "No such file or directory";
  // The status of the child, 100 if none was started. The child's own output on its standard error
  // is in <>.
  const struct {
    int status;
    std::string message;
    Replaced replaced = {};
    const char* program = "true";
    redirect_t in = kPipe;
    const char* cwd = nullptr;
  } kRows[] = {
      {100, none, {}, "runenv-no-such-program"},
      {100, "Permission denied", {}, "./file"},
      {100, none, {}, "true", {REDIRECT_FILE, "/no/such/file"}},
      {100, "Is a directory", {}, "true", {REDIRECT_FILE, "/"}},  // not opened for writing
      {100, "Operation not permitted", {SYS_vfork}},
      {100, "Operation not permitted", {SYS_pipe2}},
      {1, "Failed to duplicate stdin" + refused + "<>", {SYS_dup2, 0}},
      {1, "Failed to duplicate stdout" + refused + "<>", {SYS_dup2, 1}},
      {1, "Failed to duplicate stderr" + refused + "<>", {SYS_dup2, 2}},
      {1, "<Failed to set working directory: " + none + "\n>", {}, "true", kPipe, "/no/such"},
      {1, "<Failed to set process group" + refused + ">", {SYS_setpgid}},
      // Ended by the signal: the child does not have this process's handler.
      {256 - SIGSYS, "<>", {SYS_execve, 0, SECCOMP_RET_TRAP}}};
  write_file("file", "");
  for (const auto& row : kRows) {
    const auto check = [&] {
      limit_time();
      std::signal(SIGSYS, [](int) { _exit(3); });
      dup2(STDERR_FILENO, STDOUT_FILENO);
      std::setvbuf(stderr, nullptr, _IOFBF, BUFSIZ);
      std::printf("last");  // the child must not print buffered output again
      std::fprintf(stderr, "first ");
      row.replaced.start();
      const auto open = open_descriptors();
      int status = 100;
      try {
        const Child child(row.program, nullptr, row.in, kPipe, kPipe, row.cwd, true);
        status = wait(child);
        std::fprintf(stderr, "<%s>", all_of(child, CHANNEL_STDERR).c_str());
      } catch (const Error& error) {
        std::fputs(error.message, stderr);
      }
      if (waitpid(-1, nullptr, WNOHANG) != -1 || open_descriptors() != open ||
          is_blocked(SIGALRM)) {
        status = 99;
      }
      std::fflush(stderr);
      std::fflush(stdout);
      _exit(status & 0xff);
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(row.status), "^first " + row.message + "last$");
  }
}

TEST_F(ProcessTest, PipesCarryEverything) {
  const std::string text(1 << 20, 'x');
  for (const int flags : {0, O_NONBLOCK}) {
    const Child child("sh", "sleep 0.05; echo late >&2; sleep 0.05; cat", kPipe,
                      {REDIRECT_FILE, "out"}, kPipe);
    char line[5];
    EXPECT_EQ(read(child, CHANNEL_STDERR, line, 5), 0);  // no data yet
    EXPECT_EQ(read(child, CHANNEL_STDIN, line, 5), 0);
    EXPECT_EQ(fcntl(child->in.fd, F_GETFL) & O_NONBLOCK, 0);
    fcntl(child->in.fd, F_SETFL, flags);
    fcntl(child->err.fd, F_SETFL, 0);
    EXPECT_EQ(read(child, CHANNEL_STDERR, line, 5), 5);
    write(child, text.c_str());
    write(child, "the end");
    shutdown(child, CHANNEL_STDIN);
    write(child, "never");
    EXPECT_EQ(wait(child), 0);
    const Child copy("sh", "cat out", kInherit, kPipe);
    EXPECT_TRUE(all_of(copy) == text + "the end");
    errno = EBADF;
    EXPECT_EQ(read(copy, CHANNEL_STDOUT, line, 5), 0);  // at the end
    EXPECT_EQ(read(copy, CHANNEL_STDERR, line, 5), 0);
    EXPECT_EQ(all_of(copy, CHANNEL_STDERR), "");
    copy->in.mode = copy->err.mode = REDIRECT_PIPE;  // of bad descriptors
    EXPECT_THROW(write(copy, "x"), Error);
    EXPECT_EQ(read(copy, CHANNEL_STDERR, line, 5), -1);
    EXPECT_THROW(all_of(copy, CHANNEL_STDERR), Error);
  }
}

TEST_F(ProcessTest, FilesAreRedirectedAndReadableByTheParent) {
  write_file("in", "from a file");
  write_file("out", "something longer that is dropped");
  umask(0);
  const Child child("sh", "cat; echo bad >&2", {REDIRECT_FILE, "in"}, {REDIRECT_FILE, "out"},
                    {REDIRECT_FILE, "err"});
  EXPECT_EQ(all_of(child, CHANNEL_STDERR), "bad\n");
  EXPECT_EQ(all_of(child), "from a file");
  write_len(child, "seen, too", 4);  // the parent's descriptor has its own offset
  EXPECT_EQ(read_file("in"), "seen a file");
  EXPECT_EQ(files::status("err").permissions(), files::perms::all);
  mkfifo("fifo", 0600);  // blocks when opened
  const Child writer("sh", "sleep 0.05; echo late >fifo");
  const Child reader("sh", "read x; echo $x", {REDIRECT_FILE, "fifo"}, kPipe);
  EXPECT_EQ(all_of(reader), "late\n");
}

TEST_F(ProcessTest, SignalsReachTheChildOrItsWholeGroup) {
  const Child ended_by_destroy("sh", "exec sleep 1000");
  const Child stopped("sh", "kill -STOP $$");
  EXPECT_EQ(TEMP_FAILURE_RETRY(waitpid(stopped->pid, nullptr, WUNTRACED)), stopped->pid);
  const Child alone("sh", "exec sleep 1000");
  EXPECT_TRUE(getpgid(alone->pid) == getpgid(0) && alone->new_group == 0);
  EXPECT_TRUE(is_alive(alone));
  EXPECT_TRUE(kill(alone));
  EXPECT_EQ(wait(alone), -SIGTERM);
  // The grandchild holds the pipe open: its end shows that the whole group got the signal.
  const Child group("sh", R"(sleep 1000 & printf '\nx'; wait)", kInherit, kPipe, kInherit, nullptr,
                    true);
  char line;
  while (read(group, CHANNEL_STDOUT, &line, 1) == 0) {
  }
  EXPECT_TRUE(getpgid(group->pid) == group->pid && group->new_group == 1);
  group->new_group = 0;
  EXPECT_FALSE(kill_job(group));
  group->new_group = 1;
  EXPECT_TRUE(kill_job(group));
  EXPECT_EQ(all_of(group), "x");
  EXPECT_EQ(wait(group), -SIGTERM);
}

TEST_F(ProcessTest, AChildEndsWithItsParentOnlyIfToldTo) {
  const char* const argv[] = {"sh", "-c", "cat; exit 7", nullptr};
  process_t *free, *bound;
  std::thread([&] {
    free = create_child(argv, kPipe, kInherit, kInherit, nullptr, false);
    bound = create_child(argv, kPipe, kInherit, kInherit, nullptr, false, true);
  }).join();
  EXPECT_EQ(wait(bound), -SIGKILL);
  destroy(bound);
  shutdown(free, CHANNEL_STDIN);
  EXPECT_EQ(wait(free), 7);
  destroy(free);
}

TEST_F(ProcessTest, AChildReapedByOtherCodeIsTakenToBeDead) {
  const std::string cause = std::strerror(ECHILD);
  for (const bool reading : {false, true}) {
    const Child child("true", nullptr, kInherit, kPipe);
    EXPECT_EQ(TEMP_FAILURE_RETRY(waitpid(child->pid, nullptr, 0)), child->pid);
    EXPECT_EQ(result_of(child), std::tuple(2, -1, cause));
    EXPECT_FALSE(child->reaped);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(reading ? all_of(child).empty() : !is_alive(child));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Wait failed, assuming child is dead: " + cause + "\n");
    EXPECT_EQ(result_of(child), std::tuple(2, -1, "Child process status unknown"));
    EXPECT_EQ(wait(child), -1);
  }
}

TEST_F(ProcessTest, ChildrenGetTheirStandardChannelsOnly) {
  for (int missing = 0; missing < 8; ++missing) {
    const auto check = [=] {
      for (int fd = 0; fd < 3; ++fd) {
        if ((missing >> fd & 1) != 0) close(fd);
      }
      close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);  // inherited descriptors
      limit_time();
      const std::string errors =
          all_of(Child("sh", "echo err >&2", kInherit, kInherit, kPipe), CHANNEL_STDERR);
      const Child child("sh", "cat; ls /proc/self/fd", kPipe, kPipe, kPipe);
      const Child sibling("cat", nullptr, kPipe, {REDIRECT_FILE, "/dev/null"});
      write(child, "through");
      shutdown(child, CHANNEL_STDIN);
      _exit(all_of(child) == "through0\n1\n2\n3\n" && errors == "err\n" ? 0 : 1);  // 3 is of ls
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(0), "") << missing;
  }
}

TEST_F(ProcessTest, AHeldSignalTakesEffectLaterAndUndoesEverything) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);  // to adopt a tool that outlives its parent
  write_file("temporary", "");
  const auto check = [] {
    limit_time();
    runenv::undo_on_signals();
    runenv::interrupted_file = "temporary";
    const char* const argv[] = {"sleep", "1000", nullptr};
    const runenv::SignalsHeld held;
    {
      const runenv::SignalsHeld again;
      raise(SIGTERM);
    }
    runenv::start_tool(argv, kInherit, kInherit, kInherit, nullptr);
    std::fprintf(stderr, "on");
  };
  EXPECT_EXIT(check(), testing::KilledBySignal(SIGTERM), "^on$");
  EXPECT_FALSE(files::exists("temporary"));
}
