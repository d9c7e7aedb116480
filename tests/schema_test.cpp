#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstring>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "core/buffer.h"
#include "core/c_string.h"
#include "schema/update.h"
#include "schema/version_info.h"
#include "schema/version_info_bin.h"

using root_t = image___version_info___root_t;
using entry_t = image___version_info___root___system_types_t;
using iterator_t = image___version_info___root___system_types_t___iterator_t;
using strings = std::vector<std::string>;

// The prefixes of the names.
#define DOCUMENT(name) image___version_info___##name
#define ROOT(name) image___version_info___root_t___##name
#define ENTRY(name) image___version_info___root___system_types_t___##name

struct Document {
  dympage_t* pages = DOCUMENT(create_allocator_f)();
  root_t* root = ROOT(allocate_f)(pages);
  ~Document() { DOCUMENT(destroy_allocator_f)(pages); }

  // "key=version" of each entry, in order.
  strings lines() const {
    strings all;
    iterator_t i;
    for (auto* e = ENTRY(cit_init)(root->system_types, &i); e != nullptr; e = ENTRY(cit_next)(&i)) {
      all.push_back(std::string(e->key) + "=" + std::string(e->version, e->version_len));
    }
    return all;
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

// Parses a line of words. Returns the members of the record: presence, mark and value of each.
static std::string parse(const std::string& line) {
  std::istringstream stream(line);
  const strings words{std::istream_iterator<std::string>(stream), {}};
  std::vector<const char*> argv;
  for (const std::string& word : words) argv.push_back(word.c_str());
  image___update___root_t root;
  memset(&root, 'x', sizeof root);  // the parser clears the flags itself
  image___update___do_parse(static_cast<int>(argv.size()), argv.data(), &root);
  const auto member = [](uint32_t present, char assigned, const char* value) {
    return std::to_string(present) + assigned + (present != 0 ? value : "") + " ";
  };
  return member(root.target.present, root.target.assigned, root.target.value) +
         member(root.temp_cache.present, root.temp_cache.assigned, root.temp_cache.value) +
         member(root.skip_platform.present, root.skip_platform.assigned, "") +
         member(root.lock_latest.present, root.lock_latest.assigned, "") +
         root.version_info.assigned + root.version_info.value;
}

TEST(Update, WordsFillTheMembers) {
  const std::pair<const char*, const char*> kRows[] = {
      {"p v", "0x 0x 0x 0x %v"},
      {"p --target mac v", "1%mac 0x 0x 0x %v"},
      {"p --temp-cache d v", "0x 1%d 0x 0x %v"},
      {"p --skip-platform v", "0x 0x 1% 0x %v"},
      {"p --lock-latest v", "0x 0x 0x 1% %v"},
      {"p --target mac --temp-cache d --skip-platform --lock-latest v", "1%mac 1%d 1% 1% %v"},
      {"p --target --temp-cache --temp-cache --target --help",
       "1%--temp-cache 1%--target 0x 0x %--help"},
      {"p --target=mac", "0x 0x 0x 0x %--target=mac"},
      {"p --lock-latest --lock-latest", "0x 0x 0x 1% %--lock-latest"}};
  for (const auto& [line, members] : kRows) EXPECT_EQ(parse(line), members);
}

TEST(Update, WrongWordsAreReportedWithACaret) {
  testing::internal::CaptureStderr();
  image___update___do_document();
  const std::string usage = testing::internal::GetCapturedStderr();
  const std::string none = " requires an argument, but no argument is available";
  const std::string version_info = "path 'version info'" + none;
  const std::string superfluous = "superfluous command line argument(s)";
  const std::tuple<std::string, size_t, std::string> kRows[] = {
      {"p", 3, version_info},
      {"p --target mac", 16, version_info},
      {"p --temp-cache d", 18, version_info},
      {"p --skip-platform", 19, version_info},
      {"p --lock-latest", 17, version_info},
      {"p --target", 12, "text 'platform'" + none},
      {"p --target mac --temp-cache", 29, "path 'directory'" + none},
      {"p v more words", 5, superfluous},
      {"p --help v", 10, superfluous},
      {"p --target a --target b v", 23, superfluous},
      {"p --skip-platform --temp-cache d v", 32, superfluous},
      {"p --lock-latest --target mac v", 26, superfluous}};
  using namespace testing;
  for (const auto& [line, column, message] : kRows) {
    EXPECT_EXIT(parse(line), ExitedWithCode(1),
                Eq("unable to parse arguments: " + message + "\n\n " + line + "\n" +
                   std::string(column, ' ') + "^\n\n" + usage));
  }
  EXPECT_EXIT(parse(""), ExitedWithCode(1),
              Eq("unable to parse arguments: no arguments provided to parse\n"));
  EXPECT_EXIT(parse("p --help"), ExitedWithCode(0), Eq(usage));
}

static strings hooked;

TEST(VersionInfo, PropertiesAreAssignedOnceAndFailuresGoThroughTheRoot) {
  Document document;
  auto [pages, root] = std::pair(document.pages, document.root);
  EXPECT_EQ(root->root, root);
  entry_t* const alpha = ROOT(system_types___iwrite_create_entry)(pages, root, "alpha");
  EXPECT_EQ(ROOT(platform_version___iwrite_set)(pages, root, "2.0"), 0);
  EXPECT_STREQ(ENTRY(version___iwrite_alloc)(pages, alpha, 0), "");
  EXPECT_EQ(root->error, nullptr);
  root->error_hook = [](const char* message) { hooked.push_back(message); };
  EXPECT_EQ(ROOT(platform_version___iwrite_set)(pages, root, "3"), -1);
  EXPECT_EQ(ENTRY(version___iwrite_set)(pages, alpha, "9"), -1);
  EXPECT_EQ(ROOT(system_types___iwrite_create_entry)(pages, root, "alpha"), nullptr);
  EXPECT_EQ(ENTRY(version___iwrite_alloc)(pages, alpha, 9), nullptr);
  EXPECT_EQ(ROOT(platform_version___iwrite_alloc)(pages, root, 9), nullptr);
  const char* const platform = "reassigning property: platform_version";
  const char* const version = "reassigning property: version";
  const char* const duplicate = "duplicate entry in collection: system_types";
  EXPECT_EQ(hooked, (strings{platform, version, duplicate, version, platform}));
  EXPECT_STREQ(root->error, platform);
  EXPECT_EQ(std::string(root->platform_version, root->platform_version_len), "2.0");
  EXPECT_EQ(document.lines(), strings{"alpha="});
  EXPECT_EQ(root->system_types_count, 1U);
  const entry_t* const cut = ENTRY(allocate_f)(pages, root, "a\0b", 3);
  EXPECT_EQ(std::string(cut->key, 4), std::string("a\0\0", 4));
  EXPECT_EQ(root->system_types_count, 2U);
}

TEST(VersionInfo, LengthsThatNoMemoryHoldsEndTheProcess) {
  const Document document;
  auto [pages, root] = std::pair(document.pages, document.root);
  entry_t* const alpha = ROOT(system_types___iwrite_create_entry)(pages, root, "alpha");
  for (const uint64_t length : {UINT64_MAX, UINT64_MAX - 1, UINT64_MAX / 2}) {
    EXPECT_DEATH(DOCUMENT(allocate_text_f)(pages, "abc", length), "Out of memory!");
    EXPECT_DEATH(ENTRY(allocate_f)(pages, root, "beta", length), "Out of memory!");
    EXPECT_DEATH(ROOT(platform_version___iwrite_alloc)(pages, root, length), "Out of memory!");
    EXPECT_DEATH(ENTRY(version___iwrite_alloc)(pages, alpha, length), "Out of memory!");
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

TEST(VersionInfoBin, TailReaderLeavesWhatFollows) {
  const std::string good = kFingerprint + text("2.0") + number(1) + text("alpha") + text("1.4");
  Document document;
  const std::string longer = good + "rest";
  istream* const stream = istream_create_memory(longer.data(), longer.size());
  EXPECT_EQ(DOCUMENT(parse_bin_tail_f)(document.pages, document.root, stream), 0);
  char rest[8] = {};
  EXPECT_EQ(istream_read_len(stream, rest, sizeof rest), 4U);
  EXPECT_STREQ(rest, "rest");
  istream_destroy(stream);
  EXPECT_EQ(document.lines(), strings{"alpha=1.4"});
  EXPECT_EQ(document.read(good), "reassigning property: platform_version");
  ROOT(system_types___iwrite_unlink_entry)(document.pages, document.root, "missing");
  EXPECT_EQ(document.root->system_types_count, 0U);  // on purpose
}

TEST(VersionInfoBin, WhatIsCutOrWrongIsRefusedWithItsReason) {
  const std::string longer =
      kFingerprint + text("2.0") + number(1) + text("beta") + text("0.9") + "x";
  const std::pair<size_t, const char*> kReasons[] = {{63, "insufficient bytes to read fingerprint"},
                                                     {67, "insufficient bytes to read uint32"},
                                                     {70, "insufficient data to read text"},
                                                     {78, "insufficient bytes to read uint32"},
                                                     {82, "insufficient bytes to read entry key"},
                                                     {86, "insufficient bytes to read uint32"},
                                                     {89, "insufficient data to read text"},
                                                     {90, ""},
                                                     {91, "trailing bytes"}};
  size_t length = 0;
  for (const auto& [last, reason] : kReasons) {
    for (; length <= last; ++length) EXPECT_EQ(Document().read(longer.substr(0, length)), reason);
  }
  EXPECT_EQ(Document().read(std::string(64, 'd')), "fingerprint mismatch in binary data");
  const std::string once = text("a") + text("1"), again = text({"a\0b", 3}) + text("2");
  EXPECT_EQ(Document().read(kFingerprint + text("") + number(2) + once + again), "duplicate key");
}

TEST(VersionInfoBin, ClaimedLengthsAreNotTouched) {
  rusage before, after;
  getrusage(RUSAGE_SELF, &before);
  const std::string claim = number(UINT32_MAX);
  const std::string head = kFingerprint + text("2") + claim;
  EXPECT_EQ(Document().read(kFingerprint + claim + "2"), "insufficient data to read text");
  const std::string key(1 << 20, 'k');  // more than a block of a length that has wrapped could hold
  EXPECT_EQ(Document().read(head + claim + key), "insufficient bytes to read entry key");
  EXPECT_EQ(Document().read(head + text("a") + claim), "insufficient data to read text");
  getrusage(RUSAGE_SELF, &after);
  // In KiB. An address sanitizer touches an eighth of a block.
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 1 << 20);
}

TEST(VersionInfoBin, WritesWhatIsThere) {
  Document document, large;
  auto [pages, root] = std::pair(document.pages, document.root);
  Buffer bytes(0);
  ASSERT_EQ(DOCUMENT(write_bin_f)(root, &bytes), 0);
  std::string expected = kFingerprint + text("") + number(0);
  ROOT(platform_version___iwrite_set)(pages, root, "2.0");
  ROOT(system_types___iwrite_create_entry)(pages, root, "unset");
  entry_t* const entry = ROOT(system_types___iwrite_create_entry)(pages, root, "");
  std::memcpy(ENTRY(version___iwrite_alloc)(pages, entry, 3), "1\0y", 3);
  root->system_types_count = 9;                       // may be wrong
  ASSERT_EQ(DOCUMENT(write_bin_f)(root, &bytes), 0);  // appends
  expected += kFingerprint + text("2.0") + number(2) + text("") + text({"1\0y", 3}) +
              text("unset") + text("");
  EXPECT_EQ(ENTRY(find_cf)(root, ""), entry);
  entry->version_len = uint64_t{UINT32_MAX} + 1;
  EXPECT_EQ(DOCUMENT(write_bin_f)(root, &bytes), -1);
  EXPECT_STREQ(root->error, "text too long for binary data");
  std::swap(entry->version_len, root->platform_version_len);
  EXPECT_EQ(DOCUMENT(write_bin_f)(root, &bytes), -1);
  // All bytes of a length count. The first key is empty.
  const std::string again = kFingerprint + text(std::string(0x1020304, 'l')) + number(3) +
                            text("") + text("1") + text("a") + text("2") + text("b") + text("");
  EXPECT_EQ(large.read(again), "");
  EXPECT_EQ(large.lines(), (strings{"=1", "a=2", "b="}));
  EXPECT_EQ(DOCUMENT(write_bin_f)(large.root, &bytes), 0);
  EXPECT_TRUE(std::string(bytes.array, bytes.size) == expected + again);
}
