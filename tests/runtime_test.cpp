#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "runtime/runtime_core.h"

// Volatile, so that the compiler does not check the number of arguments.
static const char* volatile kOneConversion = "%d\n";

using SGR = RuntimeCore::SGR;

static std::string order;
static void note(void* name) {
  order += static_cast<const char*>(name);
  if (order.size() < 10) Runtime.register_event(note, name);
}

// Events cannot be deregistered, so this runs in a process of its own.
TEST(Events, RunInOrderAndNewOnesInTheNextPass) {
  const auto run = [] {
    alarm(4);
    char names[] = "a\0b\0c";
    EXPECT_EQ(Runtime.register_event(note, names), 0U);
    EXPECT_EQ(Runtime.register_event(note, names + 2), 1U);
    Runtime.deregister_event(0);  // does nothing
    Runtime.poll(5000);           // does not wait without sockets
    EXPECT_EQ(order, "ab");
    Runtime.startsocket();
    Runtime.register_event([](void*) { Runtime.shutdown(); }, nullptr);
    Runtime.poll(5000);  // does not wait after an event has stopped the sockets
    EXPECT_EQ(order, "ababab");
    const unsigned empty = Runtime.register_event(nullptr, nullptr);
    EXPECT_EQ(Runtime.register_event(note, names + 4), empty);  // swallowed
    order.clear();
    Runtime.poll(0);
    std::exit(testing::Test::HasFailure() || order != "abababab");
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST(Console, WritesMessagesAfterAnOptionalPrefix) {
  static const std::string kLong(1 << 20, 'y');
  const struct {
    const char* prefix;
    void (*action)();
    std::string out, err;
  } kRows[] = {
      {nullptr, [] { Runtime.log("- %s\n", "x"); }, "- x\n", ""},
      {"net", [] { Runtime.error("%s %d%%\n", "100%s", 7); }, "", "[net] 100%s 7%\n"},
      {nullptr, [] { Runtime.log(SGR::Red, "'%s'.\n", "a"); }, "\x1b[31m'a'.\n\x1b[0m", ""},
      {"net", [] { Runtime.error(SGR::Cyan, "%s\n", "in"); }, "", "[net] \x1b[36min\n\x1b[0m"},
      // A "%" in the prefix uses the caller's arguments.
      {"%d", [] { Runtime.log(kOneConversion, 1, 2); }, "[1] 2\n", ""},
      {nullptr, [] { Runtime.error("%s", kLong.c_str()); }, "", kLong},
  };
  for (const auto& [prefix, action, out, err] : kRows) {
    if (prefix != nullptr) Runtime.setup_prefix(prefix);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    action();
    EXPECT_EQ(lseek(STDOUT_FILENO, 0, SEEK_CUR), std::ssize(out));  // written at once
    EXPECT_EQ(testing::internal::GetCapturedStdout(), out);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), err);
    Runtime.reset_prefix();
  }
}
