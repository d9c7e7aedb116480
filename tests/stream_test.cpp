#include <cstdio>
#include <cstring>
#include <tuple>
#include <type_traits>

#include "core/error.h"
#include "core/owner.h"
#include "fs/file_interface.h"
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
  // The requested bytes, the returned bytes, and the bytes that remain in the block.
  const std::tuple<unsigned, long long, long long> kRows[] = {
      {100, 100, 3996}, {8192, 3996, 4096}, {8192, 4096, 1808}, {8192, 1808, 0}, {1, -1, 0}};
  for (const auto& [count, delivered, available] : kRows) {
    EXPECT_EQ(cache->read_block(bytes, count), delivered);
    EXPECT_EQ(Instream(cache).cstream()->available_bytes(), available);
  }
  EXPECT_EQ(instream_api_read_len(cache, bytes, 1), 0);
}

// Pieces of any size return every byte once and in order, and a buffer grows by doubling.
TEST_F(StreamTest, AFileIsTheSameInAnyPieces) {
  for (const size_t size : {0U, 5U, 4096U, 8192U, 10000U, 200000U}) {
    const std::string content = pattern(size);
    OutstreamPathImpl file("new/f", true);
    Outstream(file.stream()).write_len(content.data(), size);
    EXPECT_EQ(file.finalize(), 0);
    for (const unsigned piece : {3U, 64U, 4096U, 5000U, 70000U, 300000U}) {
      const runenv::owner<FILE, std::fclose> borrowed(std::fopen("new/f", "rb"));
      InstreamFSImpl variant(borrowed.get());
      InstreamMemImpl memory(content.data(), size);
      std::string bytes(piece, '-'), same = bytes;
      size_t at = 0;
      for (; at <= size / 2 && at + piece <= size; at += piece) {
        ASSERT_TRUE(Instream(variant.stream()).read_len(bytes.data(), piece));
        ASSERT_TRUE(Instream(memory.stream()).read_len(same.data(), piece));
        ASSERT_EQ(bytes, content.substr(at, piece));
        ASSERT_EQ(bytes, same);
      }
      Buffer rest(size != 5, variant.stream());
      Buffer expected(0);
      expected.append(content.c_str() + at, size - at + (size != 5));
      EXPECT_EQ(std::string(rest.array, rest.size), std::string(expected.array, expected.size));
      EXPECT_EQ(rest.capacity, expected.capacity) << size << " " << piece;
      std::rewind(borrowed.get());
      std::string all(size + piece, '-');
      EXPECT_FALSE(Instream(variant.stream()).read_len(all.data(), unsigned(all.size())));
      EXPECT_EQ(all, content + std::string(piece, '-'));  // what came stays
    }
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
  memory.cache.kind = 9;
  EXPECT_THROW(memory.cache.read_block(nullptr, 0), Error);
  try {
    stream.available_bytes();
    ADD_FAILURE();
  } catch (const Error& error) {
    EXPECT_EQ(static_cast<unsigned>(error.type), 11U);
    EXPECT_STREQ(error.message, "Instream is of an unknown type\n");
  }
}

TEST_F(StreamTest, RecordsReadAndSeek) {
  const std::string content = "0123456789";
  write_file("f", content);
  runenv::OwnedBucket path(fs_init("f")), missing(fs_init("no"));
  EXPECT_EQ(fs_open_read(&missing), nullptr);
  // Seeks from position 4: origin, offset, and the new position in memory and in a file, or -1.
  const std::tuple<int, long long, int, int> kRows[] = {
      {0, 10, 10, 10}, {0, 11, -1, 11}, {0, -1, -1, -1},       {1, 6, 10, 10},
      {1, 7, -1, 11},  {1, -4, 0, 0},   {1, -5, -1, -1},       {1, INT64_MAX, -1, -1},
      {2, 1, -1, 11},  {2, -10, 0, 0},  {2, INT64_MIN, -1, -1}};
  for (const auto& [origin, offset, in_memory, in_file] : kRows) {
    for (const bool memory : {true, false}) {
      istream* const stream =
          memory ? istream_create_memory(content.data(), 10) : fs_open_read(&path);
      const int target = memory ? in_memory : in_file;
      ASSERT_EQ(istream_seek_pos(stream, 0, 4), 0);
      EXPECT_EQ(istream_seek_pos(stream, 3, 7), memory ? -1 : 7);  // no such origin
      EXPECT_EQ(istream_seek_pos(stream, origin, offset), target < 0 ? -1 : 0) << offset;
      char bytes[16] = {};
      const std::string rest = content.substr(target < 0 ? 4U : size_t(std::min(target, 10)));
      EXPECT_EQ(istream_read_len(stream, bytes, 16), rest.size());
      EXPECT_EQ(bytes, rest);
      istream_destroy(stream);
    }
  }
  ASSERT_NE(std::freopen("f", "rb", stdin), nullptr);
  istream* const input = istream_create_stdin();
  char bytes[16] = {};
  EXPECT_EQ(istream_seek_pos(input, 0, 0), -1);
  EXPECT_EQ(istream_read_len(input, bytes, 3) + istream_read_len(input, bytes + 3, 13), 10U);
  EXPECT_EQ(bytes, content);
  istream_destroy(input);
}

TEST(Outstream, MemoryGetsFullBlocksAndTheRestAtTheEnd) {
  static constexpr size_t kMiB = 1024 * 1024;
  const std::string content = pattern(3 * kMiB + 8);
  OutstreamMemImpl memory(0);
  size_t written = 0;
  for (const size_t size : {size_t{5}, kMiB - 5, size_t{0}, kMiB, size_t{1}, kMiB + 7}) {
    outstream_api_write_len(memory.stream(), content.data() + written, size);
    written += size;
    EXPECT_EQ(memory.buffer.size, (written - 1) / kMiB * kMiB);  // the next write flushes
  }
  memory.finalize(false);
  EXPECT_TRUE(std::string(memory.buffer.array, memory.buffer.size) == content);
  memory.finalize(true);
  EXPECT_TRUE(std::string(memory.buffer.array, memory.buffer.size) == content + '\0');
}

// The destructors are not virtual: one called through a base class would leave the file open.
static_assert(!std::is_convertible_v<OutstreamPathImpl*, OutstreamFSImpl*> &&
              !std::is_convertible_v<InstreamPathImpl*, InstreamFSImpl*>);

TEST_F(StreamTest, AFileThatIsNotWholeIsReportedByEveryFinalize) {
  EXPECT_THROW(OutstreamPathImpl("no/f", false), Error);
  for (const size_t size : {0U, 5U, 1024U * 1024, 3U * 1024 * 1024}) {
    const std::string content = pattern(size);
    for (const char* path : {"f", "/dev/full"}) {
      OutstreamPathImpl file(path, false);
      Outstream(file.stream()).write_len(content.data(), size);
      const int expected = size != 0 && path[0] == '/' ? EOF : 0;
      EXPECT_EQ(file.finalize(), expected) << path << " " << size;
      Outstream(file.stream()).write_len(content.data(), size);  // after the end
      EXPECT_EQ(file.finalize(), expected);
      Outstream(file.stream()).write("for the destructor");
    }
    EXPECT_TRUE(read_file("f") == content);
  }
}

TEST_F(StreamTest, ABorrowedFileGetsBufferedBytesAndStaysOpen) {
  const runenv::owner<FILE, std::fclose> borrowed(std::fopen("f", "wb"));
  {
    OutstreamFSImpl file(borrowed.get());
    outstream_api_write(Outstream(file.stream()).cstream(), "text");
    file.finalize();
    Outstream(file.stream()).write(" and what the destructor finds");
  }
  EXPECT_EQ(std::fflush(borrowed.get()), 0);
  EXPECT_EQ(read_file("f"), "text and what the destructor finds");
}
