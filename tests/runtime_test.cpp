#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "runtime/runtime_core.h"

// Opaque to the compiler, which would count the conversions.
static const char* volatile kOneConversion = "%d\n";

using SGR = RuntimeCore::SGR;

static void double_itself(void* calls) {
  if (++*static_cast<int*>(calls) < 100) {
    Runtime.register_event(double_itself, calls);
  }
}

TEST(Events, ThoseRegisteredInAPassRunInTheNext) {
  static int calls = 0;  // an event stays for good
  Runtime.register_event(double_itself, &calls);
  for (const int expected : {1, 3, 7}) {
    Runtime.poll(0);
    EXPECT_EQ(calls, expected);
  }
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
