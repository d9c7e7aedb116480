#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/close_range.h>
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
  std::printf("buffered ");  // must not come out once more in a child
  for (const auto& row : kRows) {
    const char* const argv[] = {row.program, nullptr};
    try {
      create_child(argv, row.in, kInherit, kInherit, nullptr, false);
      ADD_FAILURE() << row.program;
    } catch (const Error& error) {
      EXPECT_STREQ(error.message, row.message);
    }
  }
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
  std::thread writer([&] {
    write_len(child, text.data(), static_cast<unsigned>(text.size()));
    write(child, "end");
    shutdown(child, CHANNEL_STDIN);
    write(child, "never");
  });
  EXPECT_EQ(all_of(child, CHANNEL_STDOUT), text + "end");
  writer.join();
  EXPECT_EQ(read(child, CHANNEL_STDOUT, &byte, 1), 0);  // at the end
  EXPECT_EQ(read(child, CHANNEL_STDIN, &byte, 1), 0);
  EXPECT_EQ(read(child, CHANNEL_STDERR, &byte, 1), 0);
  EXPECT_EQ(all_of(child, CHANNEL_STDERR), "");
  EXPECT_EQ(wait(child), 0);
  destroy(child);
}

TEST_F(ProcessTest, FilesAreRedirectedAndReadableByTheParent) {
  const std::string in = testing::TempDir() + "process_in" + std::to_string(getpid());
  const std::string out = testing::TempDir() + "process_out" + std::to_string(getpid());
  std::ofstream(in) << "from a file";
  std::ofstream(out) << "something longer that is dropped";
  process_t* const child = shell("cat; echo; cat missing 2>/dev/null || echo bad >&2",
                                 {REDIRECT_FILE, in.c_str()}, {REDIRECT_FILE, out.c_str()}, kPipe);
  EXPECT_EQ(all_of(child, CHANNEL_STDERR), "bad\n");
  EXPECT_EQ(all_of(child, CHANNEL_STDOUT), "from a file\n");
  destroy(child);
  std::filesystem::remove(in);
  std::filesystem::remove(out);
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
  process_t* const sibling = shell("cat >/dev/null", kPipe, kPipe);
  process_t* const child = shell("ls /proc/self/fd", kPipe, kPipe, kPipe);
  EXPECT_EQ(all_of(child, CHANNEL_STDOUT), "0\n1\n2\n3\n");  // 3 is the listing itself
  destroy(child);
  destroy(sibling);
  close(other);
}

TEST_F(ProcessTest, WorksWithoutStandardDescriptors) {
  const pid_t pid = fork();
  if (pid == 0) {
    close(0);
    close(1);
    close(2);
    process_t* const child = shell("cat; echo err >&2", kPipe, kPipe, kPipe);
    write(child, "through");
    shutdown(child, CHANNEL_STDIN);
    const bool right =
        all_of(child, CHANNEL_STDOUT) == "through" && all_of(child, CHANNEL_STDERR) == "err\n";
    destroy(child);
    _exit(right ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_EQ(status, 0);
}
