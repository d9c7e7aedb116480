#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "runtime/runtime_core.h"

// Opaque to the compiler, which would count the conversions.
static const char* volatile kOneConversion = "%d\n";

using SGR = RuntimeCore::SGR;

static std::string order;
static void note(void* name) {
  order += static_cast<const char*>(name);
  if (order.size() < 10) Runtime.register_event(note, name);
}

// Events stay registered for good, so they are in a process of their own.
TEST(Events, RunInOrderAndThoseRegisteredInAPassInTheNext) {
  const auto run = [] {
    char names[] = "a\0b\0c";
    EXPECT_EQ(Runtime.register_event(note, names), 0U);
    EXPECT_EQ(Runtime.register_event(note, names + 2), 1U);
    Runtime.deregister_event(0);  // does nothing
    for (const char* expected : {"ab", "ababab"}) {
      Runtime.poll(1000);  // without sockets there is no wait
      EXPECT_EQ(order, expected);
    }
    const unsigned empty = Runtime.register_event(nullptr, nullptr);
    EXPECT_EQ(Runtime.register_event(note, names + 4), empty);  // swallowed
    order.clear();
    Runtime.poll(0);
    std::exit(testing::Test::HasFailure() || order != "abababab");
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST(Console, WritesMessagesBehindAnOptionalPrefix) {
  static const std::string kLong(1 << 20, 'y');
  const struct {
    const char* prefix;
    void (*action)();
    std::string out, err;
  } kRows[] = {
      {nullptr, [] { Runtime.log("- %s\n", "x"); }, "- x\n", ""},
      {nullptr, [] { Runtime.error("%s %d%%\n", "100%s", 7); }, "", "100%s 7%\n"},
      {"net", [] { Runtime.error("%s\n", "gone"); }, "", "[net] gone\n"},
      {nullptr, [] { Runtime.log(SGR::Red, "'%s'.\n", "a"); }, "\x1b[31m'a'.\n\x1b[0m", ""},
      {"net", [] { Runtime.error(SGR::Cyan, "%s\n", "in"); }, "", "[net] \x1b[36min\n\x1b[0m"},
      // A "%" of the prefix takes the caller's arguments.
      {"%d", [] { Runtime.log(kOneConversion, 1, 2); }, "[1] 2\n", ""},
      {nullptr, [] { Runtime.log("%s", kLong.c_str()); }, kLong, ""},
  };
  for (const auto& row : kRows) {
    if (row.prefix != nullptr) Runtime.setup_prefix(row.prefix);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    row.action();
    EXPECT_EQ(lseek(STDOUT_FILENO, 0, SEEK_CUR), std::ssize(row.out));  // it is there at once
    EXPECT_EQ(testing::internal::GetCapturedStdout(), row.out);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), row.err);
    Runtime.reset_prefix();
  }
}
