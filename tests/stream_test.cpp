#include <cstdio>
#include <cstring>
#include <tuple>
#include <type_traits>

#include "core/error.h"
#include "stream/instream.h"
#include "stream/istream.h"
#include "stream/outstream.h"
#include "tests/files.h"

using StreamTest = ScratchTest;

static std::string pattern(size_t n) {
  std::string text;
  while (text.size() < n) text += static_cast<char>(text.size() * 31 % 251);
  return text;
}

TEST_F(StreamTest, AFileIsDeliveredInBlocks) {
  write_file("f", pattern(10000));
  InstreamPathImpl variant("f");
  InstreamCache* const cache = variant.stream();
  char bytes[8192];
  const std::tuple<unsigned, long long, long long> kRows[] = {
      {100, 100, 3996}, {8192, 3996, 4096}, {8192, 4096, 1808}, {8192, 1808, 0}, {1, -1, 0}};
  for (const auto& [count, delivered, available] : kRows) {
    EXPECT_EQ(cache->read_block(bytes, count), delivered);
    EXPECT_EQ(cache->available_bytes(), available);
  }
  EXPECT_EQ(instream_api_read_len(cache, bytes, 1), 0);
}

// However a file is taken, its bytes come once and in order, and a buffer grows by doubling.
TEST_F(StreamTest, AFileIsTheSameInAnyPieces) {
  for (const size_t size : {0U, 5U, 4096U, 8192U, 10000U, 200000U}) {
    const std::string content = pattern(size);
    OutstreamPathImpl file("f", false);
    Outstream(file.stream()).write_len(content.data(), size);
    EXPECT_EQ(file.finalize(), 0);
    for (const unsigned piece : {3U, 64U, 4096U, 5000U, 70000U, 300000U}) {
      FILE* const borrowed = std::fopen("f", "rb");
      InstreamFSImpl variant(borrowed);
      std::string bytes(piece, '-');
      size_t at = 0;
      for (; at <= size / 2 && at + piece <= size; at += piece) {
        ASSERT_TRUE(Instream(variant.stream()).read_len(bytes.data(), piece));
        ASSERT_EQ(bytes, content.substr(at, piece));
      }
      Buffer rest(true, variant.stream());
      Buffer expected(0);
      expected.append(content.c_str() + at, size - at + 1);
      EXPECT_EQ(std::string(rest.array, rest.size), std::string(expected.array, expected.size));
      EXPECT_EQ(rest.capacity, expected.capacity) << size << " " << piece;
      std::rewind(borrowed);
      std::string all(size + piece, '-');
      EXPECT_FALSE(Instream(variant.stream()).read_len(all.data(), unsigned(all.size())));
      EXPECT_EQ(all, content + std::string(piece, '-'));  // what came stays
      std::fclose(borrowed);
    }
    InstreamMemImpl memory(content.data(), size);
    std::string bytes(size, '-');
    EXPECT_TRUE(Instream(memory.stream()).read_len(bytes.data(), unsigned(size)));
    EXPECT_EQ(bytes, content);
  }
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
  EXPECT_EQ(memory.stream()->available_bytes(), 3U);
  EXPECT_STREQ(stream.read(true, nullptr), "bcd");
  stream.read(true, nullptr);
  EXPECT_EQ(memory.cache.collected.size, 8U);
  EXPECT_FALSE(stream.read_len(bytes, 4));  // what came stays
  EXPECT_STREQ(bytes, "bcd");
  EXPECT_EQ(memory.stream()->read_block(bytes, 1), -1);
}

TEST(Instream, UnknownKindsAreErrors) {
  InstreamMemImpl memory("abc", 3);
  memory.cache.kind = 9;
  EXPECT_THROW(memory.cache.read_block(nullptr, 0), Error);
  EXPECT_THROW(memory.cache.available_bytes(), Error);
  try {
    memory.cache.read(true, nullptr);
    ADD_FAILURE();
  } catch (const Error& error) {
    EXPECT_EQ(static_cast<unsigned>(error.type), 11U);
    EXPECT_STREQ(error.message, "Instream is of an unknown type\n");
  }
}

TEST(IStream, MemoryRecordSeeksInsideItsBytesOnly) {
  // From where, the origin, the offset; where that leads, -1 for nowhere.
  const std::tuple<long long, int, long long, long long> kRows[] = {
      {4, 0, 10, 10}, {4, 0, 11, -1},        {4, 0, -1, -1}, {4, 1, 6, 10},
      {4, 1, 7, -1},  {4, 1, -4, 0},         {4, 1, -5, -1}, {4, 1, INT64_MAX, -1},
      {4, 2, -10, 0}, {4, 2, INT64_MIN, -1}, {4, 2, 1, -1},  {4, 3, 0, -1}};
  for (const auto& [start, origin, offset, target] : kRows) {
    istream* const stream = istream_create_memory("0123456789", 10);
    ASSERT_EQ(istream_seek_pos(stream, 0, start), 0);
    EXPECT_EQ(istream_seek_pos(stream, origin, offset), target < 0 ? -1 : 0) << offset;
    const long long position = target < 0 ? start : target;
    char bytes[16] = {};
    EXPECT_EQ(istream_read_len(stream, bytes, 16), static_cast<unsigned long long>(10 - position));
    EXPECT_STREQ(bytes, &"0123456789"[position]);
    istream_destroy(stream);
  }
}

TEST_F(StreamTest, StandardInputReadsButDoesNotSeek) {
  write_file("f", "hello");
  ASSERT_NE(std::freopen("f", "rb", stdin), nullptr);
  istream* const stream = istream_create_stdin();
  char bytes[8] = {};
  EXPECT_EQ(istream_read_len(stream, bytes, 3), 3U);
  EXPECT_EQ(istream_seek_pos(stream, 0, 0), -1);
  EXPECT_EQ(istream_read_len(stream, bytes + 3, 5), 2U);
  EXPECT_STREQ(bytes, "hello");
  istream_destroy(stream);
}

TEST(Outstream, StagesExactlyOneMiB) {
  constexpr size_t kMiB = 1024 * 1024;
  const std::string content = pattern(2 * kMiB + 1);
  OutstreamMemImpl memory(0);
  Outstream out(memory.stream());
  out.write("");
  out.write_len(content.data(), 2 * kMiB);
  EXPECT_EQ(memory.buffer.size, kMiB);  // full again, but handed on by the next write only
  outstream_api_write_len(out.cstream(), content.data() + 2 * kMiB, 1);
  EXPECT_EQ(memory.buffer.size, 2 * kMiB);
  EXPECT_EQ(out.cstream()->staged, 1U);
  memory.finalize(false);
  EXPECT_EQ(memory.buffer.size, content.size());
  memory.finalize(true);
  EXPECT_EQ(std::string(memory.buffer.array, memory.buffer.size), content + '\0');
}

// Closed through a base, they would leave their files open.
static_assert(!std::is_convertible_v<OutstreamPathImpl*, OutstreamFSImpl*> &&
              !std::is_convertible_v<InstreamPathImpl*, InstreamFSImpl*>);

TEST_F(StreamTest, AFileThatIsNotWholeIsReportedByEveryFinalize) {
  for (const size_t size : {0U, 5U, 1024U * 1024, 3U * 1024 * 1024}) {
    const std::string content = pattern(size);
    for (const char* path : {"f", "/dev/full"}) {
      OutstreamPathImpl file(path, false);
      Outstream(file.stream()).write_len(content.data(), size);
      const int expected = size != 0 && path[0] == '/' ? EOF : 0;
      EXPECT_EQ(file.finalize(), expected) << path << " " << size;
      Outstream(file.stream()).write_len(content.data(), size);  // too late
      EXPECT_EQ(file.finalize(), expected);
      Outstream(file.stream()).write("for the destructor");
    }
    EXPECT_EQ(read_file("f"), content);
  }
}

TEST_F(StreamTest, ABorrowedFileGetsWhatIsStagedAndStaysOpen) {
  FILE* const borrowed = std::fopen("f", "wb");
  OutstreamFSImpl file(borrowed);
  outstream_api_write(Outstream(file.stream()).cstream(), "text");
  file.finalize();
  EXPECT_EQ(std::fclose(borrowed), 0);
  EXPECT_EQ(read_file("f"), "text");
}
