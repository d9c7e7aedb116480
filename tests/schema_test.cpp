#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>

#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "core/buffer.h"
#include "schema/update.h"
#include "schema/version_info.h"
#include "schema/version_info_bin.h"

using entry_t = image___version_info___root___system_types_t;
using strings = std::vector<std::string>;

// The prefixes of the names.
#define DOCUMENT(name) image___version_info___##name
#define ROOT(name) image___version_info___root_t___##name
#define ENTRY(name) image___version_info___root___system_types_t___##name

// Parses a line of words, prints the members of the record (presence, mark and value of each) on
// standard error, and ends the process.
static void parse(const std::string& line) {
  std::istringstream stream(line);
  const strings words{std::istream_iterator<std::string>(stream), {}};
  std::vector<const char*> argv;
  for (const std::string& word : words) argv.push_back(word.c_str());
  argv.push_back(nullptr);
  image___update___root_t root;
  memset(&root, 'x', sizeof root);  // the parser clears the flags itself
  image___update___do_parse(static_cast<int>(words.size()), argv.data(), &root);
  const auto& [lock, skip, target, cache, path] = root;
  std::cerr << target.present << target.assigned << (target.present != 0 ? target.value : "") << " "
            << cache.present << cache.assigned << (cache.present != 0 ? cache.value : "") << " "
            << skip.present << skip.assigned << " " << lock.present << lock.assigned << " "
            << path.assigned << path.value;
  std::exit(9);
}

TEST(Update, WordsFillTheMembersOrAreReportedWithACaret) {
  testing::internal::CaptureStderr();
  image___update___do_document();
  const std::string usage = testing::internal::GetCapturedStderr();
  const std::string none = " requires an argument, but no argument is available";
  const std::string version_info = "path 'version info'" + none;
  const std::string superfluous = "superfluous command line argument(s)";
  // The words; then the column of the caret and the message, or 0 and the members.
  const std::tuple<std::string, size_t, std::string> kRows[] = {
      {"p v", 0, "0x 0x 0x 0x %v"},
      {"p --target mac --temp-cache d --skip-platform --lock-latest v", 0, "1%mac 1%d 1% 1% %v"},
      {"p --target --temp-cache --temp-cache --target --help", 0,
       "1%--temp-cache 1%--target 0x 0x %--help"},
      {"p --target=mac", 0, "0x 0x 0x 0x %--target=mac"},
      {"p --lock-latest --lock-latest", 0, "0x 0x 0x 1% %--lock-latest"},
      {"p", 3, version_info},
      {"p --target mac", 16, version_info},
      {"p --temp-cache d", 18, version_info},
      {"p --skip-platform", 19, version_info},
      {"p --lock-latest", 17, version_info},
      {"p --target", 12, "text 'platform'" + none},
      {"p --target mac --temp-cache", 29, "path 'directory'" + none},
      {"p v more words", 5, superfluous},
      {"p --help v", 10, superfluous},
      {"p --skip-platform --temp-cache d v", 32, superfluous},
      {"p --lock-latest --target mac v", 26, superfluous}};
  using namespace testing;
  const std::string report = "unable to parse arguments: ";
  for (const auto& [line, column, text] : kRows) {
    const std::string caret = " " + line + "\n" + std::string(column, ' ') + "^\n\n";
    EXPECT_EXIT(parse(line), ExitedWithCode(column == 0 ? 9 : 1),
                Eq(column == 0 ? text : report + text + "\n\n" + caret + usage));
  }
  EXPECT_EXIT(parse(""), ExitedWithCode(1), Eq(report + "no arguments provided to parse\n"));
  EXPECT_EXIT(parse("p --help"), ExitedWithCode(0), Eq(usage));
}

struct Document {
  dympage_t* pages = DOCUMENT(create_allocator_f)();
  image___version_info___root_t* root = ROOT(allocate_f)(pages);
  ~Document() { DOCUMENT(destroy_allocator_f)(pages); }

  entry_t* add(const char* key) {
    return ROOT(system_types___iwrite_create_entry)(pages, root, key);
  }
  // The reader's message, "" for success.
  std::string read(const std::string& bytes) {
    istream* const stream = istream_create_memory(bytes.data(), bytes.size());
    const int result = DOCUMENT(parse_bin_f)(pages, root, stream);
    istream_destroy(stream);
    EXPECT_EQ(result, root->error == nullptr ? 0 : -1);
    return root->error == nullptr ? "" : root->error;
  }
};

static strings hooked;

TEST(VersionInfo, PropertiesAreAssignedOnceAndFailuresGoThroughTheRoot) {
  Document document;
  auto [pages, root] = std::pair(document.pages, document.root);
  entry_t* const alpha = document.add("alpha");
  EXPECT_EQ(ROOT(platform_version___iwrite_set)(pages, root, "2.0"), 0);
  EXPECT_STREQ(ENTRY(version___iwrite_alloc)(pages, alpha, 0), "");
  EXPECT_EQ(root->error, nullptr);
  root->error_hook = [](const char* message) { hooked.push_back(message); };
  EXPECT_EQ(ROOT(platform_version___iwrite_set)(pages, root, "3"), -1);
  EXPECT_EQ(ENTRY(version___iwrite_set)(pages, alpha, "9"), -1);
  EXPECT_EQ(document.add("alpha"), nullptr);
  EXPECT_EQ(ENTRY(version___iwrite_alloc)(pages, alpha, 9), nullptr);
  EXPECT_EQ(ROOT(platform_version___iwrite_alloc)(pages, root, 9), nullptr);
  const char* const platform = "reassigning property: platform_version";
  const char* const version = "reassigning property: version";
  const char* const duplicate = "duplicate entry in collection: system_types";
  EXPECT_EQ(hooked, (strings{platform, version, duplicate, version, platform}));
  EXPECT_STREQ(root->error, platform);
  EXPECT_EQ(std::string(root->platform_version, root->platform_version_len), "2.0");
  const entry_t* const cut = ENTRY(allocate_f)(pages, root, "a\0b", 3);
  EXPECT_EQ(std::string(cut->key, 4), std::string("a\0\0", 4));
  EXPECT_EQ(root->system_types_count, 2U);
  ROOT(system_types___iwrite_unlink_entry)(pages, root, "missing");
  EXPECT_EQ(root->system_types_count, 1U);  // on purpose
}

TEST(VersionInfo, LengthsBeyondTheMemoryEndTheProcess) {
  const Document document;
  auto [pages, root] = std::pair(document.pages, document.root);
  for (const uint64_t length : {UINT64_MAX, UINT64_MAX - 1, UINT64_MAX / 2}) {
    EXPECT_DEATH(DOCUMENT(allocate_text_f)(pages, "abc", length), "Out of memory!");
    EXPECT_DEATH(ROOT(platform_version___iwrite_alloc)(pages, root, length), "Out of memory!");
  }
}

static const std::string kFingerprint =
    "d95b246cca0c3b04d105771d58246fa0e706a6d44ac97d6cb4bab99390a02582";

static std::string number(size_t n) {
  return {char(n >> 24), char(n >> 16), char(n >> 8), char(n)};
}

static std::string text(const std::string& bytes) {
  return number(bytes.size()) + bytes;
}

// The fuzz target compares the reader with a model, for documents of moderate lengths.
TEST(VersionInfoBin, ClaimedLengthsAreNotTouched) {
  rusage before, after;
  getrusage(RUSAGE_SELF, &before);
  const std::string claim = number(UINT32_MAX);
  const std::string head = kFingerprint + text("2") + claim;
  EXPECT_EQ(Document().read(kFingerprint + claim + "2"), "insufficient data to read text");
  const std::string key(1 << 20, 'k');  // longer than a block whose length overflowed
  EXPECT_EQ(Document().read(head + claim + key), "insufficient bytes to read entry key");
  EXPECT_EQ(Document().read(head + text("a") + claim), "insufficient data to read text");
  getrusage(RUSAGE_SELF, &after);
  // In KiB. Under AddressSanitizer, mallinfo2 returns 0, and an eighth of the memory is used.
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, mallinfo2().arena == 0 ? 1 << 20 : 32 << 10);
}

TEST(VersionInfoBin, AllBytesOfALengthCount) {
  Document document, large;
  auto [pages, root] = std::pair(document.pages, document.root);
  Buffer bytes(0);
  ASSERT_EQ(DOCUMENT(write_bin_f)(root, &bytes), 0);  // without any assignment
  entry_t* const entry = document.add("unset");
  root->system_types_count = 9;  // it may be wrong
  ASSERT_EQ(DOCUMENT(write_bin_f)(root, &bytes), 0);
  entry->version_len = uint64_t{UINT32_MAX} + 1;
  EXPECT_EQ(DOCUMENT(write_bin_f)(root, &bytes), -1);
  EXPECT_STREQ(root->error, "text too long for binary data");
  std::swap(entry->version_len, root->platform_version_len);
  EXPECT_EQ(DOCUMENT(write_bin_f)(root, &bytes), -1);
  const std::string more = kFingerprint + text(std::string(0x1020304, 'l')) + number(0);
  EXPECT_EQ(large.read(more), "");
  EXPECT_EQ(DOCUMENT(write_bin_f)(large.root, &bytes), 0);
  EXPECT_TRUE(std::string(bytes.array, bytes.size) == kFingerprint + text("") + number(0) +
                                                          kFingerprint + text("") + number(1) +
                                                          text("unset") + text("") + more);
  EXPECT_EQ(large.read(more), "reassigning property: platform_version");
}
