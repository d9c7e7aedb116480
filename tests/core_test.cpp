#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <utility>

#include "core/bucket.h"
#include "core/buffer.h"
#include "core/c_string.h"
#include "core/dymarray.h"
#include "core/dympage.h"
#include "core/dympool.h"
#include "core/string.h"
#include "core/string_array.h"

TEST(Strings, AreComparedCopiedAndReleased) {
  const ByteArrayComparator less;
  EXPECT_TRUE(less("ab", "abc") && !less("abc", "ab") && !less("x", "x") && less("a", "\xff"));
  EXPECT_TRUE(equal("", "") && !equal("a", "b"));
  String text;
  text.copy_from("one");
  text.update_from(text.get_unmanaged_string() + 1);  // from its own content
  EXPECT_STREQ(text.get_unmanaged_string(), "ne");
  text.release();
  text.release();
  StringArray array;
  const char* const source[] = {"a", "", "c"};
  array.copy_from(source, 3);
  EXPECT_STREQ(array.get_unmanaged_strings()[0], "a");
  EXPECT_STREQ(array.get_unmanaged_string(2), "c");
  EXPECT_EQ(array.get_unmanaged_string(3), nullptr);
  array.update_from(array.get_unmanaged_strings() + 1, 2);  // its own content
  EXPECT_TRUE(array.get_size() == 2 && equal(array.get_unmanaged_string(1), "c"));
  array.update_from(source, 0);
  EXPECT_TRUE(array.get_size() == 0 && array.get_unmanaged_string(0) == nullptr);
  array.release();
  EXPECT_EQ(array.get_unmanaged_strings(), nullptr);
}

TEST(Strings, UpdatingFreesTheContentBefore) {
  String text;
  StringArray array;
  const std::string content(5000, 'x');  // larger than the blocks that malloc keeps aside
  const char* const source[] = {content.c_str(), content.c_str()};
  text.update_from(content.c_str());
  array.update_from(source, 2);
  const size_t in_use = mallinfo2().uordblks;  // 0 under a sanitizer, which sees leaks itself
  text.update_from(content.c_str());
  array.update_from(source, 2);
  EXPECT_LT(mallinfo2().uordblks, in_use + content.size());
}

// How buffers and builders grow is held against models under fuzz/.
TEST(Buffer, TakesItsOwnBytesAndKeepsItsReadOffset) {
  Buffer buffer(0);
  buffer.append("abcdefgh", 8);
  buffer.append(buffer.array + 1, 3);  // they move as it grows
  EXPECT_EQ(std::string(buffer.array, buffer.size), "abcdefghbcd");
  buffer.consume(12);  // beyond what is written, but not beyond the capacity of 16
  EXPECT_EQ(buffer.get_unmanaged_array(), buffer.array + 12);
  buffer.consume(5);
  EXPECT_STREQ(buffer.get_unmanaged_array(), "");
  buffer.release();
  EXPECT_EQ(buffer.consumed, 17U);
}

TEST(Buffer, ExhaustionIsReportedAndThrowsAPlainText) {
  for (const unsigned long long n : {1ULL << 62, 1ULL << 63, ~0ULL}) {
    Buffer buffer(4);
    buffer.append("abc", 3);
    testing::internal::CaptureStderr();
    EXPECT_THROW(buffer.append("", n), const char*);
    EXPECT_TRUE(testing::internal::GetCapturedStderr().ends_with("Out of memory!\n"));
    buffer.append("z", 2);  // usable again
    EXPECT_STREQ(buffer.get_unmanaged_array(), "z");
  }
}

TEST(Bucket, NoBuilderGivesNone) {
  EXPECT_EQ(bucket_push(bucket_append_int(bucket_append(nullptr, "a"), 1), 'b'), nullptr);
  bucket_t* const none = bucket_release(bucket_drop(bucket_nil(nullptr), 1));
  EXPECT_EQ(bucket_cstring(bucket_appendv(none, "a", nullptr)), nullptr);
}

// True for zeroes, which are then overwritten: memory that comes again is not zero by itself.
static bool take_zeroes(void* block, size_t n) {
  auto* bytes = static_cast<char*>(block);
  const bool zero = std::all_of(bytes, bytes + n, [](char byte) { return byte == 0; });
  std::memset(block, 0xff, n);
  return zero;
}

TEST(Dympage, CarvesAlignedZeroedBlocksFromPages) {
  dympage_t pages;
  dympage_init2(&pages, 100);
  auto* three = static_cast<char*>(dympage_alloc(&pages, 3, 1));
  EXPECT_EQ(static_cast<char*>(dympage_alloc(&pages, 8, 8)) - three, 8);
  dympage_alloc(&pages, 90, 4);
  EXPECT_EQ(dympage_usage(&pages), 248U);
  EXPECT_EQ(dympage_overhead(&pages), 84U + 10U);
  dympage_alloc(&pages, 150, 8);           // a page of its own, exactly as large as asked for
  EXPECT_EQ(dympage_usage(&pages), 422U);  // the padding of the page before is used up
  EXPECT_EQ(dympage_overhead(&pages), 84U + 4U);
  dympage_destroy(&pages);
  dympage_destroy(&pages);

  dympage_init2(&pages, 99);
  dympage_alloc(&pages, 98, 1);  // the padding of the next block is larger than the byte left
  auto* last = static_cast<char*>(dympage_alloc(&pages, 8, 64));
  const auto padding = last - reinterpret_cast<char*>(pages.page + 1);
  EXPECT_EQ(dympage_overhead(&pages), static_cast<unsigned long long>(1 + 99 - 8 - padding));
  dympage_destroy(&pages);

  for (int round = 0; round < 2; ++round) {
    dympage_t* own = dympage_create2(4096);
    EXPECT_EQ(dympage_overhead(own), 4080U);  // the handle itself takes 16
    for (unsigned long long alignment = 1; alignment <= 1 << 16; alignment *= 2) {
      for (const unsigned long long size :
           {1ULL, 5ULL, 9ULL, 20ULL, 40ULL, 64ULL, 99ULL, 5000ULL}) {
        const unsigned long long page = 24 + std::max(size, 4096ULL);
        const unsigned long long before = dympage_usage(own);
        auto* block = dympage_alloc(own, size, alignment);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignment, 0U);
        EXPECT_TRUE(take_zeroes(block, size)) << size;
        const unsigned long long grown = dympage_usage(own) - before;
        EXPECT_TRUE(grown == 0 || grown == page || grown == page + alignment) << grown;
      }
    }
    dympage_destroy(own);
  }
}

TEST(Dympool, HandsOutFreshPagesFromTheTopAndReusesWhatIsFreed) {
  dympool_t pool;
  dympool_init(&pool, 13, 4);
  std::array<char*, 4> elements{};
  for (auto& element : elements) {
    EXPECT_EQ(dympool_pages(&pool), &element == elements.data() ? 0U : 1U);
    element = static_cast<char*>(dympool_alloc(&pool));
    EXPECT_TRUE(take_zeroes(element, 13));
  }
  EXPECT_EQ(elements[0] - elements[1], 13);
  EXPECT_EQ(dympool_pages(&pool), 2U);
  EXPECT_EQ(dympool_overhead(&pool), 2U);
  void* const head = pool.free_list;
  EXPECT_EQ(dympool_free(&pool, elements[1]), head);
  EXPECT_EQ(dympool_alloc(&pool), elements[1]);
  EXPECT_TRUE(take_zeroes(elements[1], 13));
  dympool_destroy(&pool);
  for (const auto& [size, per_page] : {std::pair(8U, 1U), {7U, 2U}}) {
    dympool_t refused;
    dympool_init(&refused, size, per_page);
    EXPECT_EQ(dympool_alloc(&refused), nullptr);
  }
}

TEST(Exhaustion, EndsTheProcessInTheCFamilies) {
  dymarray_t array;
  dymarray_init(&array, 1ULL << 32, 1ULL << 32);  // the product is 0 in 64 bits
  EXPECT_DEATH(dymarray_alloc(&array), "Out of memory!");
  dympool_t pool;
  dympool_init(&pool, 1ULL << 32, 1ULL << 32);
  EXPECT_DEATH(dympool_alloc(&pool), "Out of memory!");
  EXPECT_DEATH(dympage_create2(~0ULL), "Out of memory!");
}
