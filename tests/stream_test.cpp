#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/error.h"
#include "stream/instream.h"
#include "stream/istream.h"
#include "stream/outstream.h"

static std::string pattern(size_t n) {
  std::string text(n, '\0');
  for (size_t i = 0; i < n; ++i) {
    text[i] = static_cast<char>(i * 31 % 251);
  }
  return text;
}

// A temporary file with the given content, opened at its start.
static FILE* file_with(const std::string& content) {
  FILE* const file = std::tmpfile();
  std::fwrite(content.data(), 1, content.size(), file);
  std::rewind(file);
  return file;
}

static std::string path_with(const std::string& content) {
  const std::string path = testing::TempDir() + "stream_test." + std::to_string(getpid());
  FILE* const file = std::fopen(path.c_str(), "wb");
  std::fwrite(content.data(), 1, content.size(), file);
  std::fclose(file);
  return path;
}

static std::string content_of(const std::string& path) {
  InstreamPathImpl file(path.c_str());
  Buffer content(false, file.stream());
  return {content.get_unmanaged_array(), content.length()};
}

TEST(Instream, FileIsDeliveredInBlocks) {
  const std::string content = pattern(10000);
  FILE* const file = file_with(content);
  InstreamFSImpl variant(file);
  InstreamCache* const cache = variant.stream();
  char bytes[8192];
  EXPECT_EQ(cache->read_block(bytes, 100), 100);
  EXPECT_EQ(cache->available_bytes(), 3996U);
  std::string read(bytes, 100);
  for (const long long n : {3996LL, 4096LL, 1808LL}) {
    ASSERT_EQ(cache->read_block(bytes, sizeof bytes), n);
    read.append(bytes, static_cast<size_t>(n));
  }
  EXPECT_EQ(read, content);
  EXPECT_EQ(cache->read_block(bytes, 1), -1);
  EXPECT_EQ(cache->available_bytes(), 0U);
  EXPECT_EQ(instream_api_read_len(cache, bytes, 1), 0);
  std::fclose(file);
}

TEST(Instream, MemoryIsConsumedByBlocksButNotByCollecting) {
  Buffer source(0);
  source.append("xabcd", 5);
  source.consume(1);
  InstreamMemImpl memory(&source);
  Instream stream(memory.stream());
  char bytes[8] = {};
  EXPECT_TRUE(stream.read_len(bytes, 0));
  EXPECT_TRUE(stream.read_len(bytes, 1));
  EXPECT_STREQ(bytes, "a");
  EXPECT_STREQ(stream.read(true, nullptr), "bcd");
  stream.read(true, nullptr);
  EXPECT_EQ(memory.cache.collected.size, 8U);
  EXPECT_FALSE(stream.read_len(bytes, 4));  // what came stays
  EXPECT_STREQ(bytes, "bcd");
  EXPECT_EQ(memory.stream()->read_block(bytes, 1), -1);
}

TEST(Instream, FailuresAreErrors) {
  EXPECT_THROW(InstreamPathImpl("/does/not/exist"), Error);
  InstreamMemImpl memory("abc", 3);
  InstreamCache* const cache = memory.stream();
  cache->kind = 9;
  char byte;
  const std::vector<void (*)(InstreamCache*, char*)> operations = {
      [](InstreamCache* c, char* b) { c->read_block(b, 1); },
      [](InstreamCache* c, char*) { c->available_bytes(); },
      [](InstreamCache* c, char*) { c->read(true, nullptr); }};
  for (const auto operation : operations) {
    try {
      operation(cache, &byte);
      ADD_FAILURE();
    } catch (const Error& error) {
      EXPECT_EQ(error.type, Error::Type::Internal);
      EXPECT_STREQ(error.message, "Instream is of an unknown type\n");
    }
  }
}

TEST(IStream, MemoryRecordSeeksInsideItsBytesOnly) {
  const struct {
    long long start;
    int origin;
    long long offset;
    long long position;  // -1: refused
  } kRows[] = {{0, 0, 10, 10},        {0, 0, 11, -1},        {0, 0, -1, -1},  {0, 1, -1, -1},
               {4, 1, 6, 10},         {4, 1, 7, -1},         {4, 1, -4, 0},   {4, 1, INT64_MAX, -1},
               {4, 1, INT64_MIN, -1}, {0, 2, -10, 0},        {0, 2, -11, -1}, {0, 2, 0, 10},
               {0, 2, 1, -1},         {4, 2, INT64_MIN, -1}, {4, 3, 0, -1}};
  for (const auto& row : kRows) {
    istream* const stream = istream_create_memory("0123456789", 10);
    ASSERT_EQ(istream_seek_pos(stream, 0, row.start), 0);
    EXPECT_EQ(istream_seek_pos(stream, row.origin, row.offset), row.position < 0 ? -1 : 0)
        << row.origin << " " << row.offset;
    const long long position = row.position < 0 ? row.start : row.position;
    char bytes[16] = {};
    EXPECT_EQ(istream_read_len(stream, bytes, 16), static_cast<unsigned long long>(10 - position));
    EXPECT_STREQ(bytes, &"0123456789"[position]);
    istream_destroy(stream);
  }
}

TEST(IStream, StandardInputReadsButDoesNotSeek) {
  const std::string path = path_with("hello");
  ASSERT_NE(std::freopen(path.c_str(), "rb", stdin), nullptr);
  istream* const stream = istream_create_stdin();
  char bytes[8] = {};
  EXPECT_EQ(istream_read_len(stream, bytes, 3), 3U);
  EXPECT_EQ(istream_seek_pos(stream, 0, 0), -1);
  EXPECT_EQ(istream_read_len(stream, bytes + 3, 5), 2U);
  EXPECT_STREQ(bytes, "hello");
  istream_destroy(stream);
  std::remove(path.c_str());
}

static constexpr size_t kMiB = 1024 * 1024;

TEST(Outstream, StagesExactlyOneMiB) {
  const std::string content = pattern(kMiB + 1);
  OutstreamMemImpl memory(0);
  Outstream out(memory.stream());
  out.write("");
  out.write_len(content.data(), kMiB);
  EXPECT_EQ(memory.buffer.size, 0U);  // full, but handed on by the next write only
  outstream_api_write_len(out.cstream(), content.data() + kMiB, 1);
  EXPECT_EQ(memory.buffer.size, kMiB);
  EXPECT_EQ(out.cstream()->staged, 1U);
  memory.finalize(true);
  EXPECT_EQ(std::string(memory.buffer.array, memory.buffer.size), content + '\0');
}

TEST(Outstream, PathIsReplacedAndItsClosingReported) {
  const std::string path = path_with("longer than before");
  {
    OutstreamPathImpl file(path.c_str(), false);
    Outstream(file.stream()).write("short");
    EXPECT_EQ(file.finalize(), 0);
  }
  EXPECT_EQ(content_of(path), "short");
  std::remove(path.c_str());
  OutstreamPathImpl full("/dev/full", false);
  Outstream(full.stream()).write("x");
  EXPECT_EQ(full.finalize(), EOF);
}
