// The command line parser against a table of its slots, down to the last byte of its reports.
#include <csetjmp>
#include <vector>

#include "fuzz/input.h"
#include "schema/update.h"

static jmp_buf exit_point;
static bool parsing = false;
static int exit_status;

// The parser ends the process where it fails; the linker leads that here (--wrap=exit).
extern "C" [[noreturn]] void __real_exit(int status);
extern "C" [[noreturn]] void __wrap_exit(int status) {
  if (!parsing) {
    __real_exit(status);
  }
  exit_status = status;
  longjmp(exit_point, 1);
}

// Runs the parser: -1 when it returned, else the status it wanted to end with; what it printed.
static int parse(const std::vector<const char*>& argv, image___update___root_t* root,
                 std::string* printed) {
  char* text = nullptr;
  size_t length = 0;
  FILE* const real_stderr = stderr;
  stderr = open_memstream(&text, &length);
  exit_status = -1;
  parsing = true;
  if (setjmp(exit_point) == 0) {
    image___update___do_parse(static_cast<int>(argv.size()), argv.data(), root);
  }
  parsing = false;
  fclose(stderr);
  stderr = real_stderr;
  printed->assign(text, length);
  free(text);
  return exit_status;
}

struct Expected {
  bool present[4] = {};  // --target, --temp-cache, --skip-platform, --lock-latest
  const char* value[2] = {};
  const char* path = nullptr;
  std::string error;
  size_t caret_at = 0;  // the argument that the report points at
};

static Expected expect(const std::vector<const char*>& argv) {
  static const struct {
    std::string word, argument;
  } kSlots[] = {{"--target", "text 'platform'"},
                {"--temp-cache", "path 'directory'"},
                {"--skip-platform", ""},
                {"--lock-latest", ""}};
  static const std::string kMissing = " requires an argument, but no argument is available";
  Expected expected;
  size_t at = 1;
  for (size_t slot = 0; slot < 4; ++slot) {
    if (at == argv.size() || argv[at] != kSlots[slot].word) {
      continue;
    }
    expected.present[slot] = true;
    ++at;
    if (slot < 2) {
      if (at == argv.size()) {
        expected.error = kSlots[slot].argument + kMissing;
        expected.caret_at = at;
        return expected;
      }
      expected.value[slot] = argv[at++];
    }
  }
  if (at == argv.size()) {
    expected.error = "path 'version info'" + kMissing;
  } else {
    expected.path = argv[at++];
    if (at != argv.size()) {
      expected.error = "superfluous command line argument(s)";
    }
  }
  expected.caret_at = at;
  return expected;
}

static std::string report(const std::vector<const char*>& argv, const Expected& expected) {
  std::string line, caret = " ";
  for (size_t i = 0; i < argv.size(); ++i) {
    line += std::string(" ") + argv[i];
    caret.append(i < expected.caret_at ? std::string(argv[i]).size() + 1 : 0, ' ');
  }
  return "unable to parse arguments: " + expected.error + "\n\n" + line + "\n" + caret + "^\n\n";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const char* const kWords[] = {
      "--target", "--temp-cache", "--skip-platform", "--lock-latest", "--help", "file", ""};
  Input input(data, size);
  std::vector<std::string> own(32);
  std::vector<const char*> argv{"program"};
  for (size_t i = 0; i < own.size() && !input.empty(); ++i) {
    const size_t pick = input.byte();
    own[i] = input.c_text(pick >= std::size(kWords) ? pick % 20 : 0);
    argv.push_back(pick < std::size(kWords) ? kWords[pick] : own[i].c_str());
  }
  image___update___root_t root{};
  std::string printed;
  const int status = parse(argv, &root, &printed);
  if (argv.size() == 2 && argv[1] == std::string("--help")) {
    REQUIRE(status == 0 && printed.find("usage:") == 4);
    return 0;
  }
  const Expected expected = expect(argv);
  if (!expected.error.empty()) {
    REQUIRE(status == 1 && printed.find(report(argv, expected)) == 0);
    return 0;
  }
  REQUIRE(status == -1 && printed.empty());
  REQUIRE(root.target.present == expected.present[0]);
  REQUIRE(root.temp_cache.present == expected.present[1]);
  REQUIRE(root.skip_platform.present == expected.present[2]);
  REQUIRE(root.lock_latest.present == expected.present[3]);
  REQUIRE(!expected.present[0] || root.target.value == expected.value[0]);
  REQUIRE(!expected.present[1] || root.temp_cache.value == expected.value[1]);
  REQUIRE(root.version_info.value == expected.path);
  return 0;
}
