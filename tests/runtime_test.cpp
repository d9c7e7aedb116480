#include <gtest/gtest.h>

#include <string>

#include "runtime/runtime_core.h"

static std::string capture(bool error, void (*action)()) {
  if (error) {
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
  }
  testing::internal::CaptureStdout();
  action();
  return testing::internal::GetCapturedStdout();
}

// Opaque to the compiler, which would count the conversions.
static const char* volatile kOneConversion = "%d\n";

using SGR = RuntimeCore::SGR;

TEST(Console, WritesPlainAndColouredMessagesBehindAnOptionalPrefix) {
  const struct {
    const char* prefix;
    bool error;
    void (*action)();
    const char* output;
  } kRows[] = {
      {nullptr, false, [] { Runtime.log("- %s\n", "x"); }, "- x\n"},
      {nullptr, true, [] { Runtime.error("%s %d%%\n", "100%s", 7); }, "100%s 7%\n"},
      {"net", true, [] { Runtime.error("%s\n", "gone"); }, "[net] gone\n"},
      {nullptr, false, [] { Runtime.log(SGR::Red, "Mark close '%s'.\n", "a"); },
       "\x1b[31mMark close 'a'.\n\x1b[0m"},
      {"net", true, [] { Runtime.error(SGR::Cyan, "%s\n", "in"); }, "[net] \x1b[36min\n\x1b[0m"},
      // A "%" of the prefix takes the caller's arguments.
      {"%d", false, [] { Runtime.log(kOneConversion, 1, 2); }, "[1] 2\n"},
  };
  for (const auto& row : kRows) {
    if (row.prefix != nullptr) {
      Runtime.setup_prefix(row.prefix);
    }
    EXPECT_EQ(capture(row.error, row.action), row.output);
    Runtime.reset_prefix();
  }
}

TEST(Console, PrintsLongMessagesWhole) {
  static const std::string kLong(1 << 20, 'y');
  EXPECT_EQ(capture(false, [] { Runtime.log("%s", kLong.c_str()); }), kLong);
}
