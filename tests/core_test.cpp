#include <gtest/gtest.h>
#include <sys/resource.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "core/bucket.h"
#include "core/buffer.h"
#include "core/c_string.h"
#include "core/dymarray.h"
#include "core/dympage.h"
#include "core/dympool.h"
#include "core/error.h"
#include "core/string.h"
#include "core/string_array.h"

static std::string unread(Buffer& buffer) {
  return {buffer.get_unmanaged_array(), buffer.length()};
}

TEST(Strings, AreComparedCopiedAndReleased) {
  const ByteArrayComparator less;
  EXPECT_TRUE(less("ab", "abc") && !less("abc", "ab") && !less("x", "x") && less("a", "\xff"));
  EXPECT_TRUE(equal("", "") && !equal("a", "b"));
  String text;
  text.update_from("one");
  text.update_from(text.get_unmanaged_string() + 1);  // from its own content
  EXPECT_STREQ(text.get_unmanaged_string(), "ne");
  text.release();
  text.release();
  text.copy_from("two");
  EXPECT_STREQ(text.get_unmanaged_string(), "two");
  StringArray array;
  const char* const source[] = {"a", "", "c"};
  array.copy_from(source, 3);
  EXPECT_STREQ(array.get_unmanaged_strings()[0], "a");
  EXPECT_STREQ(array.get_unmanaged_string(2), "c");
  EXPECT_EQ(array.get_unmanaged_string(3), nullptr);
  array.update_from(source, 0);
  EXPECT_TRUE(array.get_size() == 0 && array.get_unmanaged_string(0) == nullptr);
  array.release();
  EXPECT_EQ(array.get_unmanaged_strings(), nullptr);
}

TEST(Error, OwnsItsMessageAndIsNeverCopied) {
  static_assert(!std::is_copy_constructible_v<Error>);
  std::string text = "first";
  try {
    throw Error(Error::Type::Internal, text.c_str());
  } catch (const Error& error) {
    text = "other";
    EXPECT_STREQ(error.message, "first");
    EXPECT_EQ(static_cast<unsigned>(error.type), 11U);
  }
}

TEST(Buffer, TakesItsOwnBytesAndKeepsItsReadOffset) {
  Buffer buffer(0);
  EXPECT_STREQ(buffer.get_unmanaged_array(), "");
  buffer.append("abcdefgh", 8);
  buffer.append(buffer.array + 1, 3);  // they move as it grows
  EXPECT_EQ(unread(buffer), "abcdefghbcd");
  buffer.consume(17);  // beyond the capacity of 16
  EXPECT_STREQ(buffer.get_unmanaged_array(), "");
  buffer.release();
  EXPECT_EQ(buffer.consumed, 17U);
}

TEST(Buffer, ExhaustionIsReportedAndThrowsAPlainText) {
  for (const unsigned long long n : {1ULL << 62, 1ULL << 63, ~0ULL}) {
    Buffer buffer(4);
    buffer.append("abc", 3);
    testing::internal::CaptureStderr();
    try {
      buffer.append("", n);
      ADD_FAILURE() << "appended " << n;
    } catch (const char* message) {
      EXPECT_STREQ(message, "Out of memory!");
    }
    EXPECT_TRUE(testing::internal::GetCapturedStderr().ends_with("Out of memory!\n"));
    buffer.append("z", 1);  // usable again
    EXPECT_EQ(unread(buffer), "z");
  }
}

TEST(Bucket, BuildsTextInSteps) {
  const std::string long_text(64, 'x');
  bucket_t b;
  bucket_nil(&b);
  EXPECT_STREQ(bucket_cstring(&b), "");
  EXPECT_EQ(b.capacity, 64U);
  for (int i = 0; i < 63; ++i) {
    bucket_push(&b, 'p');
  }
  EXPECT_EQ(b.capacity, 64U);
  bucket_push(&b, 'p');
  EXPECT_EQ(b.capacity, 128U);
  EXPECT_EQ(b.data[64], '\0');
  EXPECT_STREQ(bucket_drop(&b, 1000)->data, "");
  bucket_release(&b);
  EXPECT_EQ(bucket_append(&b, long_text.c_str())->capacity, 128U);
  bucket_append(bucket_drop(&b, 62), nullptr);
  bucket_appendv(&b, "1", "", "22", nullptr, "never");
  EXPECT_STREQ(b.data, "xx122");
  bucket_release(&b);
  EXPECT_EQ(b.data, nullptr);
  // Kept as it is.
  EXPECT_STREQ(bucket_append_int(&b, INT64_MIN)->data, "--922337203685477580(");
  bucket_release(&b);
  EXPECT_EQ(bucket_push(bucket_append(nullptr, "a"), 'b'), nullptr);
  EXPECT_EQ(bucket_cstring(bucket_appendv(nullptr, "a", nullptr)), nullptr);
}

static bool is_zero(const void* block, size_t n) {
  const auto* bytes = static_cast<const char*>(block);
  return std::all_of(bytes, bytes + n, [](char byte) { return byte == 0; });
}

TEST(Dympage, CarvesAlignedZeroedBlocksFromPages) {
  dympage_t pages;
  dympage_init2(&pages, 100);
  EXPECT_EQ(dympage_usage(&pages), 124U);
  auto* nothing = dympage_alloc(&pages, 0, 1);
  EXPECT_EQ(dympage_overhead(&pages), 100U);
  auto* three = static_cast<char*>(dympage_alloc(&pages, 3, 1));
  EXPECT_EQ(nothing, three);
  EXPECT_EQ(static_cast<char*>(dympage_alloc(&pages, 8, 8)) - three, 8);
  EXPECT_EQ(dympage_overhead(&pages), 84U);
  dympage_alloc(&pages, 150, 8);
  EXPECT_EQ(dympage_usage(&pages), 298U);  // a page of its own, exactly as large as asked for
  EXPECT_EQ(dympage_overhead(&pages), 84U);
  dympage_destroy(&pages);

  dympage_t* own = dympage_create2(64);
  EXPECT_EQ(dympage_overhead(own), 48U);  // the handle itself takes 16
  for (unsigned long long alignment = 1; alignment <= 1 << 16; alignment *= 2) {
    for (const unsigned long long size : {1ULL, 40ULL, 64ULL, 100ULL}) {
      auto* block = static_cast<char*>(dympage_alloc(own, size, alignment));
      EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignment, 0U);
      EXPECT_TRUE(is_zero(block, size));
      std::memset(block, 0xff, size);
    }
  }
  dympage_destroy(own);
}

TEST(Dympage, HugeBlockIsNotTouched) {
  dympage_t* pages = dympage_create();
  EXPECT_EQ(dympage_usage(pages), 10485784U);
  auto* block = static_cast<char*>(dympage_alloc(pages, 1ULL << 32, 8));
  EXPECT_EQ(block[0], '\0');
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  EXPECT_LT(usage.ru_maxrss, 1 << 20);  // KiB
  dympage_destroy(pages);
}

TEST(Dympool, HandsOutFreshPagesFromTheTopAndReusesWhatIsFreed) {
  for (const unsigned long long size : {8ULL, 13ULL, 64ULL}) {
    dympool_t pool;
    dympool_init(&pool, size, 4);
    std::array<char*, 4> elements{};
    for (auto& element : elements) {
      EXPECT_EQ(dympool_pages(&pool), &element == elements.data() ? 0U : 1U);
      element = static_cast<char*>(dympool_alloc(&pool));
      EXPECT_TRUE(is_zero(element, size));
      std::memset(element, 0xff, size);
    }
    EXPECT_EQ(elements[0] - elements[1], static_cast<ptrdiff_t>(size));
    EXPECT_EQ(dympool_pages(&pool), 2U);
    EXPECT_EQ(dympool_overhead(&pool), 2U);
    void* const head = pool.free_list;
    EXPECT_EQ(dympool_free(&pool, elements[1]), head);
    EXPECT_EQ(dympool_overhead(&pool), 3U);
    EXPECT_EQ(dympool_alloc(&pool), elements[1]);
    EXPECT_TRUE(is_zero(elements[1], size));
    dympool_destroy(&pool);
  }
  dympool_t refused;
  dympool_init(&refused, 8, 1);
  EXPECT_EQ(dympool_alloc(&refused), nullptr);
}
