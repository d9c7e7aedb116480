#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <utility>

#include "core/buffer.h"
#include "core/error.h"
#include "process/child_process.h"
#include "tests/files.h"

using namespace ChildProcess;

static constexpr redirect_t kInherit{REDIRECT_INHERIT, nullptr}, kPipe{REDIRECT_PIPE, nullptr};

struct Child {
  ~Child() { destroy(record); }
  operator process_t*() const { return record; }
  process_t* operator->() const { return record; }
  process_t* const record;
};

// Starts a program, or the shell with a script.
static Child start(const char* program, const char* script, redirect_t in = kInherit,
                   redirect_t out = kInherit, redirect_t err = kInherit, const char* cwd = nullptr,
                   bool new_group = false) {
  const char* const argv[] = {program, script == nullptr ? nullptr : "-c", script, nullptr};
  return {create_child(argv, in, out, err, cwd, new_group)};
}

static std::string all_of(process_t* child, channel_t channel = CHANNEL_STDOUT) {
  Buffer output(0);
  read_all(child, channel, output);
  return {output.get_unmanaged_array(), output.length()};
}

// No test leaves a child behind, and each goes on in spite of signals that break into every wait.
class ProcessTest : public ScratchTest {
 protected:
  ProcessTest() {
    struct sigaction action = {};  // without SA_RESTART
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    ualarm(1000, 1000);
  }
  ~ProcessTest() override {
    ualarm(0, 0);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  }
};

TEST_F(ProcessTest, ResultsTellExitStatusAndSignal) {
  const std::tuple<const char*, int, int, const char*> kRows[] = {
      {"exit 0", 0, 0, "Success"},
      {"exit 3", 3, 3, "Failure"},
      {"sleep 0.05; exit 255", 255, 255, "Failure"},
      {"kill -9 $$", 9, -9, "Killed"}};
  for (const auto& [script, code, folded, message] : kRows) {
    const Child child = start("sh", script);
    EXPECT_EQ(wait(child), folded) << script;
    EXPECT_EQ(wait2(child).code, code);  // answered from the record
    EXPECT_EQ(wait2(child).message, message);
    EXPECT_FALSE(is_alive(child) || kill(child));
  }
}

TEST_F(ProcessTest, FailedStartsTellWhyAndRepeatNothing) {
  const std::tuple<const char*, redirect_t, const char*> kRows[] = {
      {"runenv-no-such-program", kPipe, "No such file or directory"},
      {"/tmp", kPipe, "Permission denied"},
      {"true", {REDIRECT_FILE, "/no/such/file"}, "No such file or directory"}};
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  std::setvbuf(stderr, nullptr, _IOFBF, BUFSIZ);
  std::printf("once");  // what is buffered must not come out once more in a child
  std::fprintf(stderr, "once, then ");
  std::signal(SIGTERM, SIG_IGN);  // lets a child come to its end
  for (int i = 0; i < 60; ++i) {
    const auto& [program, redirect, message] = kRows[i % 3];
    try {
      start(program, nullptr, redirect, kInherit, kPipe);
      ADD_FAILURE() << program;
    } catch (const Error& error) {
      EXPECT_STREQ(error.message, message);
    }
  }
  std::signal(SIGTERM, SIG_DFL);
  const Child lost = start("true", nullptr, kPipe, kInherit, kPipe, "/no/such/directory");
  EXPECT_EQ(all_of(lost, CHANNEL_STDERR),
            "Failed to set working directory: No such file or directory\n");
  std::setvbuf(stderr, nullptr, _IONBF, 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "once");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "once, then ");
}

TEST_F(ProcessTest, ProgramsAreFoundFromTheChildsDirectory) {
  write_file("d/here.sh", "pwd\n");  // no "#!": the shell's
  files::permissions("d/here.sh", files::perms::all);
  files::create_symlink("/bin/pwd", "d/here");
  setenv("PATH", (std::string(".:") + getenv("PATH")).c_str(), 1);
  for (const char* name : {"./here", "here", "./here.sh", "here.sh"}) {
    const Child child = start(name, nullptr, kInherit, kPipe, kInherit, "d");
    EXPECT_EQ(all_of(child), directory + "/d\n") << name;
  }
}

TEST_F(ProcessTest, PipesCarryEverything) {
  std::string text;
  for (int i = 0; i < 100000; ++i) text += std::to_string(i);
  for (const int flags : {0, O_NONBLOCK}) {
    const Child child = start("sh", "sleep 0.05; echo late >&2; sleep 0.05; cat", kPipe,
                              {REDIRECT_FILE, "out"}, kPipe);
    char line[5];
    EXPECT_EQ(read(child, CHANNEL_STDERR, line, 5), 0);  // nothing there yet
    EXPECT_EQ(read(child, CHANNEL_STDIN, line, 5), 0);
    EXPECT_EQ(fcntl(child->in.fd, F_GETFL) & O_NONBLOCK, 0);
    fcntl(child->in.fd, F_SETFL, flags);
    fcntl(child->err.fd, F_SETFL, 0);
    EXPECT_EQ(read(child, CHANNEL_STDERR, line, 5), 5);
    write(child, text.c_str());
    shutdown(child, CHANNEL_STDIN);
    write(child, "never");
    EXPECT_EQ(wait(child), 0);
    const Child copy = start("sh", "cat out", kInherit, kPipe);
    EXPECT_TRUE(all_of(copy) == text);
    EXPECT_EQ(read(copy, CHANNEL_STDOUT, line, 5), 0);  // at the end
    EXPECT_EQ(read(copy, CHANNEL_STDERR, line, 5), 0);
    EXPECT_EQ(all_of(copy, CHANNEL_STDERR), "");
    copy->in.mode = copy->err.mode = REDIRECT_PIPE;  // of bad descriptors
    EXPECT_THROW(write(copy, "x"), Error);
    EXPECT_EQ(read(copy, CHANNEL_STDERR, line, 5), -1);
    EXPECT_THROW(all_of(copy, CHANNEL_STDERR), Error);
  }
}

TEST_F(ProcessTest, TextsAreWrittenWholeHoweverLong) {
  // The same 16 MiB again and again, 4 GiB in all and one more byte behind.
  static constexpr size_t kPiece = size_t{16} << 20, kSize = (size_t{4} << 30) + 1;
  const int memory = memfd_create("text", MFD_CLOEXEC);
  EXPECT_EQ(ftruncate(memory, kPiece), 0);
  const int access = PROT_READ | PROT_WRITE;
  auto* const text = static_cast<char*>(
      mmap(nullptr, kSize + kPiece, access, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
  for (size_t at = 0; at < kSize - 1; at += kPiece) {
    mmap(text + at, kPiece, access, MAP_SHARED | MAP_FIXED, memory, 0);
  }
  std::memset(text, 'x', kPiece);
  text[kSize - 1] = 'x';
  const auto written = [] {
    const std::string counts = read_file("/proc/self/io");
    return std::stoull(counts.substr(counts.find("wchar: ") + 7));
  };
  const Child child = start("true", nullptr, {REDIRECT_FILE, "/dev/null"});
  const auto before = written();
  write(child, text);
  EXPECT_EQ(written() - before, kSize);
  munmap(text, kSize + kPiece);
  close(memory);
}

TEST_F(ProcessTest, FilesAreRedirectedAndReadableByTheParent) {
  write_file("in", "from a file");
  write_file("out", "something longer that is dropped");
  umask(0);
  const Child child = start("sh", "cat; echo bad >&2", {REDIRECT_FILE, "in"},
                            {REDIRECT_FILE, "out"}, {REDIRECT_FILE, "err"});
  EXPECT_EQ(all_of(child, CHANNEL_STDERR), "bad\n");
  EXPECT_EQ(all_of(child), "from a file");
  write(child, "seen");  // the parent's own descriptor stands at the start
  EXPECT_EQ(all_of(start("cat", nullptr, {REDIRECT_FILE, "in"}, kPipe)), "seen a file");
  EXPECT_EQ(files::status("err").permissions(), files::perms::all);
}

TEST_F(ProcessTest, SignalsReachTheChildOrItsWholeGroup) {
  const Child ended_by_destroy = start("sh", "exec sleep 1000");
  const Child stopped = start("sh", "kill -STOP $$");
  EXPECT_EQ(TEMP_FAILURE_RETRY(waitpid(stopped->pid, nullptr, WUNTRACED)), stopped->pid);
  const Child alone = start("sh", "exec sleep 1000");
  EXPECT_TRUE(is_alive(alone));
  EXPECT_TRUE(kill(alone));
  EXPECT_EQ(wait(alone), -SIGTERM);
  // The grandchild holds the pipe open: its end shows that the whole group got the signal.
  const Child group =
      start("sh", "sleep 1000 & echo; wait", kInherit, kPipe, kInherit, nullptr, true);
  char line;
  while (read(group, CHANNEL_STDOUT, &line, 1) == 0) {
  }
  EXPECT_EQ(std::exchange(group->new_group, 0U), 1U);
  EXPECT_FALSE(kill_job(group));
  group->new_group = 1;
  EXPECT_TRUE(kill_job(group));
  EXPECT_EQ(all_of(group), "");
  EXPECT_EQ(wait(group), -SIGTERM);
}

TEST_F(ProcessTest, ChildReapedBehindOurBackIsTakenToBeDead) {
  const std::string cause = std::strerror(ECHILD);
  for (const bool reading : {false, true}) {
    const Child child = start("true", nullptr, kInherit, kPipe);
    EXPECT_EQ(TEMP_FAILURE_RETRY(waitpid(child->pid, nullptr, 0)), child->pid);
    EXPECT_EQ(wait2(child).message, cause);
    EXPECT_FALSE(child->reaped);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(reading ? all_of(child).empty() : !is_alive(child));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Wait failed, assuming child is dead: " + cause + "\n");
    EXPECT_EQ(wait2(child).message, "Child process status unknown");
    EXPECT_EQ(wait(child), -1);
  }
}

TEST_F(ProcessTest, ChildrenGetTheirStandardChannelsOnly) {
  for (int missing = 0; missing < 8; ++missing) {
    const auto check = [=] {
      for (int fd = 0; fd < 3; ++fd) {
        if ((missing >> fd & 1) != 0) close(fd);
      }
      close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);  // what we were started with
      const Child sibling = start("cat", nullptr, kPipe, {REDIRECT_FILE, "/dev/null"});
      const Child child = start("sh", "cat; ls /proc/self/fd; echo err >&2", kPipe, kPipe, kPipe);
      write(child, "through");
      shutdown(child, CHANNEL_STDIN);
      const std::string output = all_of(child), errors = all_of(child, CHANNEL_STDERR);
      const bool right = output == "through0\n1\n2\n3\n" && errors == "err\n";  // 3: the listing
      try {
        start("runenv-no-such-program", nullptr, kPipe, kPipe, kPipe);
      } catch (const Error&) {
        _exit(right ? 0 : 1);
      }
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(0), "") << missing;
  }
}
