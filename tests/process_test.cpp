#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/close_range.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>

#include "core/buffer.h"
#include "core/error.h"
#include "process/child_process.h"

using namespace ChildProcess;

static constexpr redirect_t kInherit{REDIRECT_INHERIT, nullptr};
static constexpr redirect_t kPipe{REDIRECT_PIPE, nullptr};

static size_t open_descriptors() {
  const std::filesystem::directory_iterator listing("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(listing), end(listing)));
}

// No test may leave a descriptor or a child behind.
class ProcessTest : public testing::Test {
 protected:
  // What we were started with ourselves is not to be inherited either.
  ProcessTest() { close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC); }
  ~ProcessTest() override {
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  }
  const size_t before = open_descriptors();
};

static process_t* shell(const char* script, redirect_t in = kInherit, redirect_t out = kInherit,
                        redirect_t err = kInherit, const char* cwd = nullptr,
                        bool new_group = false) {
  const char* const argv[] = {"sh", "-c", script, nullptr};
  return create_child(argv, in, out, err, cwd, new_group);
}

static std::string all_of(process_t* child, channel_t channel) {
  Buffer output(0);
  read_all(child, channel, output);
  return {output.get_unmanaged_array(), output.length()};
}

TEST_F(ProcessTest, ResultsTellExitStatusAndSignal) {
  const struct {
    const char* script;
    int kind, code, folded;
    const char* message;
  } kRows[] = {{"exit 0", 0, 0, 0, "Success"},
               {"exit 3", 1, 3, 3, "Failure"},
               {"exit 255", 1, 255, 255, "Failure"},
               {"kill -9 $$", 2, 9, -9, "Killed"},
               {"kill -15 $$", 2, 15, -15, "Terminated"}};
  for (const auto& row : kRows) {
    process_t* const child = shell(row.script);
    EXPECT_EQ(wait(child), row.folded) << row.script;
    EXPECT_EQ(wait(child), row.folded);  // answered from the record
    const result_t result = wait2(child);
    EXPECT_EQ(result.kind, row.kind);
    EXPECT_EQ(result.code, row.code);
    EXPECT_EQ(result.message, row.message);
    EXPECT_FALSE(is_alive(child));
    EXPECT_FALSE(kill(child));
    destroy(child);
  }
}

TEST_F(ProcessTest, WhatCannotBeStartedThrowsAndLeavesNothing) {
  const struct {
    const char* program;
    redirect_t in;
    const char* message;
  } kRows[] = {{"runenv-no-such-program", kPipe, "No such file or directory"},
               {"/tmp", kPipe, "Permission denied"},
               {"true", {REDIRECT_FILE, "/no/such/file"}, "No such file or directory"}};
  testing::internal::CaptureStdout();
  std::printf("once");  // must not come out once more in a child
  for (const auto& row : kRows) {
    const char* const argv[] = {row.program, nullptr};
    try {
      create_child(argv, row.in, kInherit, kInherit, nullptr, false);
      ADD_FAILURE() << row.program;
    } catch (const Error& error) {
      EXPECT_STREQ(error.message, row.message);
    }
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "once");
}

TEST_F(ProcessTest, BufferedOutputOfTheParentComesOutOnce) {
  testing::internal::CaptureStdout();
  std::printf("once");
  process_t* const child = shell("exit 0", kInherit, kInherit, kPipe, "/no/such/directory");
  EXPECT_EQ(all_of(child, CHANNEL_STDERR),
            "Failed to set working directory: No such file or directory\n");
  EXPECT_EQ(wait(child), 1);
  destroy(child);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "once");
}

TEST_F(ProcessTest, WriteToAChildThatIsGoneThrows) {
  const auto previous = std::signal(SIGPIPE, SIG_IGN);
  process_t* const child = shell("exit 0", kPipe);
  wait(child);
  EXPECT_THROW(write(child, "x"), Error);
  destroy(child);
  std::signal(SIGPIPE, previous);
}

TEST_F(ProcessTest, PipesCarryEverythingBothWays) {
  const std::string text(3 << 20, 't');
  const char* const argv[] = {"cat", nullptr};
  process_t* const child = create_child(argv, kPipe, kPipe, kInherit, nullptr, false);
  char byte;
  EXPECT_EQ(read(child, CHANNEL_STDOUT, &byte, 1), 0);  // nothing there yet
  EXPECT_EQ(read(child, CHANNEL_STDIN, &byte, 1), 0);
  EXPECT_EQ(fcntl(child->in.fd, F_GETFL) & O_NONBLOCK, 0);
  std::thread writer([&] {
    write_len(child, text.data(), static_cast<unsigned>(text.size()));
    write(child, "end");
    shutdown(child, CHANNEL_STDIN);
    write(child, "never");
  });
  EXPECT_EQ(all_of(child, CHANNEL_STDOUT), text + "end");
  writer.join();
  EXPECT_EQ(read(child, CHANNEL_STDOUT, &byte, 1), 0);  // at the end
  EXPECT_EQ(read(child, CHANNEL_STDERR, &byte, 1), 0);
  EXPECT_EQ(all_of(child, CHANNEL_STDERR), "");
  const int out = std::exchange(child->out.fd, -1);
  EXPECT_EQ(read(child, CHANNEL_STDOUT, &byte, 1), -1);
  EXPECT_THROW(all_of(child, CHANNEL_STDOUT), Error);
  child->out.fd = out;
  EXPECT_EQ(wait(child), 0);
  destroy(child);
}

TEST_F(ProcessTest, SignalsAndFullPipesDoNotCutWritingOrWaitingShort) {
  struct sigaction action = {}, previous;
  action.sa_handler = [](int) {};  // without SA_RESTART: every wait is interrupted
  sigaction(SIGALRM, &action, &previous);
  const std::string file = testing::TempDir() + "process_copy" + std::to_string(getpid());
  std::string text;
  for (int i = 0; i < 100000; ++i) {
    text += std::to_string(i);
  }
  for (const int flags : {0, O_NONBLOCK}) {
    process_t* const child =
        shell("sleep 0.05; cat; sleep 0.05", kPipe, {REDIRECT_FILE, file.c_str()});
    fcntl(child->in.fd, F_SETFL, flags);
    const itimerval often{{0, 1000}, {0, 1000}}, never{};
    setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_NO_THROW(write(child, text.c_str()));
    shutdown(child, CHANNEL_STDIN);
    EXPECT_EQ(wait(child), 0);
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_TRUE(all_of(child, CHANNEL_STDOUT) == text);
    destroy(child);
  }
  std::filesystem::remove(file);
  sigaction(SIGALRM, &previous, nullptr);
}

TEST_F(ProcessTest, FilesAreRedirectedAndReadableByTheParent) {
  const std::string in = testing::TempDir() + "process_in" + std::to_string(getpid());
  const std::string out = testing::TempDir() + "process_out" + std::to_string(getpid());
  const std::string err = out + "_err";
  std::ofstream(in) << "from a file";
  std::ofstream(out) << "something longer that is dropped";
  process_t* const child = shell("cat; echo; echo bad >&2", {REDIRECT_FILE, in.c_str()},
                                 {REDIRECT_FILE, out.c_str()}, {REDIRECT_FILE, err.c_str()});
  EXPECT_EQ(all_of(child, CHANNEL_STDERR), "bad\n");
  EXPECT_EQ(all_of(child, CHANNEL_STDOUT), "from a file\n");
  write(child, "seen");  // the parent's own descriptor stands at the start
  destroy(child);
  std::string line;
  std::getline(std::ifstream(in), line);
  EXPECT_EQ(line, "seen a file");
  const mode_t mask = umask(0);
  umask(mask);
  struct stat made;
  ASSERT_EQ(stat(err.c_str(), &made), 0);
  EXPECT_EQ(made.st_mode & 0777, 0777 & ~mask);
  for (const auto& file : {in, out, err}) {
    std::filesystem::remove(file);
  }
}

TEST_F(ProcessTest, SignalsReachTheChildOrItsWholeGroup) {
  process_t* child = shell("exec sleep 100");
  EXPECT_TRUE(is_alive(child));
  EXPECT_FALSE(kill_job(child));  // it has no group of its own
  EXPECT_TRUE(kill(child));
  EXPECT_EQ(wait(child), -SIGTERM);
  destroy(child);
  // The grandchild holds the pipe open: its end shows that the whole group got the signal.
  child = shell("sleep 100 & echo started; wait", kInherit, kPipe, kInherit, nullptr, true);
  char line[16];
  while (read(child, CHANNEL_STDOUT, line, sizeof line) == 0) {
  }
  const uint32_t own_group = std::exchange(child->new_group, 0U);
  EXPECT_FALSE(kill_job(child));
  child->new_group = own_group;
  EXPECT_TRUE(kill_job(child));
  EXPECT_EQ(all_of(child, CHANNEL_STDOUT), "");
  EXPECT_EQ(wait(child), -SIGTERM);
  destroy(child);
  const auto start = std::chrono::steady_clock::now();
  destroy(shell("exec sleep 100"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_F(ProcessTest, ChildReapedBehindOurBackIsTakenToBeDead) {
  const std::string logged =
      std::string("Wait failed, assuming child is dead: ") + std::strerror(ECHILD) + "\n";
  const struct {
    const char* what;
    void (*collect)(process_t*);
  } kRows[] = {{"is_alive", [](process_t* child) { EXPECT_FALSE(is_alive(child)); }},
               {"read_all", [](process_t* child) { all_of(child, CHANNEL_STDOUT); }}};
  for (const auto& row : kRows) {
    process_t* const child = shell("exit 0", kInherit, kPipe);
    ASSERT_EQ(waitpid(child->pid, nullptr, 0), child->pid);
    EXPECT_EQ(wait2(child).message, std::strerror(ECHILD));
    EXPECT_FALSE(child->reaped);
    testing::internal::CaptureStderr();
    row.collect(child);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), logged) << row.what;
    EXPECT_EQ(wait2(child).message, "Child process status unknown");
    EXPECT_EQ(wait(child), -1);
    destroy(child);
  }
}

TEST_F(ProcessTest, ChildInheritsNothingButItsStandardChannels) {
  const int other = open("/dev/null", O_RDONLY | O_CLOEXEC);
  const redirect_t null{REDIRECT_FILE, "/dev/null"};
  process_t* const sibling = shell("cat", kPipe, null);
  process_t* const child = shell("ls /proc/self/fd", null, kPipe, kPipe);
  EXPECT_EQ(all_of(child, CHANNEL_STDOUT), "0\n1\n2\n3\n");  // 3 is the listing itself
  destroy(child);
  destroy(sibling);
  close(other);
}

TEST_F(ProcessTest, WorksWithoutStandardDescriptors) {
  for (int closed = 1; closed < 8; ++closed) {
    const pid_t pid = fork();
    if (pid == 0) {
      for (int fd = 0; fd < 3; ++fd) {
        if ((closed >> fd & 1) != 0) {
          close(fd);
        }
      }
      process_t* const child = shell("cat; echo err >&2", kPipe, kPipe, kPipe);
      write(child, "through");
      shutdown(child, CHANNEL_STDIN);
      const bool right =
          all_of(child, CHANNEL_STDOUT) == "through" && all_of(child, CHANNEL_STDERR) == "err\n";
      destroy(child);
      try {
        const char* const argv[] = {"runenv-no-such-program", nullptr};
        create_child(argv, kPipe, kPipe, kPipe, nullptr, false);
      } catch (const Error&) {  // told by a status pipe that no channel has run over
        _exit(right ? 0 : 1);
      }
      _exit(1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0) << closed;
  }
}
