// The command line parser against a table of its slots, down to the last byte of its reports. An
// input is the argument vector, one word a line.
#include <csetjmp>
#include <cstring>
#include <vector>

#include "fuzz/input.h"
#include "schema/update.h"

static jmp_buf ended;
static bool parsing = false;
static int exit_status;

// The parser ends the process where it fails; the linker leads that here (--wrap=exit).
extern "C" [[noreturn]] void __real_exit(int status);
extern "C" [[noreturn]] void __wrap_exit(int status) {
  if (!parsing) {
    __real_exit(status);
  }
  exit_status = status;
  longjmp(ended, 1);
}

static std::string member(uint32_t present, const char* value, char assigned) {
  return std::to_string(present) + assigned + (present != 0 ? value : "") + "\n";
}

// The status that the parser ends with and what it prints, or -1 and the record that it fills.
static std::string parse(const std::vector<std::string>& words) {
  std::vector<const char*> argv;
  for (const std::string& word : words) {
    argv.push_back(word.c_str());
  }
  image___update___root_t root;
  memset(&root, 'x', sizeof root);  // the parser clears the flags itself, and no mark
  char* printed = nullptr;
  size_t length = 0;
  FILE* const real_stderr = stderr;
  stderr = open_memstream(&printed, &length);
  exit_status = -1;
  parsing = true;
  if (setjmp(ended) == 0) {
    image___update___do_parse(static_cast<int>(argv.size()), argv.data(), &root);
  }
  parsing = false;
  fclose(stderr);
  stderr = real_stderr;
  std::string outcome = std::to_string(exit_status) + "\n" + printed;
  free(printed);
  if (exit_status == -1) {
    outcome += member(root.target.present, root.target.value, root.target.assigned) +
               member(root.temp_cache.present, root.temp_cache.value, root.temp_cache.assigned) +
               member(root.skip_platform.present, "", root.skip_platform.assigned) +
               member(root.lock_latest.present, "", root.lock_latest.assigned) +
               member(1, root.version_info.value, root.version_info.assigned);
  }
  return outcome;
}

static const std::string& usage() {
  static const std::string text = parse({"program", "--help"}).substr(2);
  return text;
}

static std::string report(const std::vector<std::string>& words, size_t at,
                          const std::string& error) {
  std::string line, caret = " ";
  for (size_t i = 0; i < words.size(); ++i) {
    line += " " + words[i];
    caret.append(i < at ? words[i].size() + 1 : 0, ' ');
  }
  return "1\nunable to parse arguments: " + error + "\n\n" + line + "\n" + caret + "^\n\n" +
         usage();
}

static std::string expect(const std::vector<std::string>& words) {
  static const struct {
    std::string word, argument;
  } kSlots[] = {{"--target", "text 'platform'"},
                {"--temp-cache", "path 'directory'"},
                {"--skip-platform", ""},
                {"--lock-latest", ""}};
  static const std::string kMissing = " requires an argument, but no argument is available";
  const size_t n = words.size();
  if (n == 0) {
    return "1\nunable to parse arguments: no arguments provided to parse\n";
  }
  if (n == 2 && words[1] == "--help") {
    return "0\n" + usage();
  }
  size_t at = 1;
  std::string members;
  for (const auto& slot : kSlots) {
    const bool present = at != n && words[at] == slot.word;
    const bool valued = present && !slot.argument.empty();
    at += present;
    if (valued && at == n) {
      return report(words, at, slot.argument + kMissing);
    }
    members += (present ? "1%" : "0x") + (valued ? words[at++] : "") + "\n";
  }
  if (at == n) {
    return report(words, at, "path 'version info'" + kMissing);
  }
  if (at + 1 != n) {
    return report(words, at + 1, "superfluous command line argument(s)");
  }
  return "-1\n" + members + "1%" + words[at] + "\n";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<std::string> words;
  for (const uint8_t *end = data + size, *next; data < end; data = next + 1) {
    next = std::find(data, end, '\n');
    words.emplace_back(std::string(data, next).c_str());
  }
  REQUIRE(parse(words) == expect(words));
  return 0;
}
