#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <utility>

#include "core/bucket.h"
#include "core/buffer.h"
#include "core/dymarray.h"
#include "core/dympage.h"
#include "core/dympool.h"

// The fuzz targets compare the content and growth of the containers with models.
TEST(Buffer, ExhaustionIsReportedAndThrowsACString) {
  for (const unsigned long long n : {1ULL << 62, 1ULL << 63, ~0ULL}) {
    Buffer buffer(4);
    buffer.append("abc", 3);
    for (int i = 0; i < 2; ++i) {  // the second time without storage
      testing::internal::CaptureStderr();
      EXPECT_THROW(buffer.append("", n), const char*);
      const std::string report = "\n" + testing::internal::GetCapturedStderr();
      EXPECT_TRUE(report.ends_with("\nOut of memory!\n"));
    }
    buffer.release();
    buffer.append("z", 2);  // it can be used again
    EXPECT_STREQ(buffer.get_unmanaged_array(), "z");
  }
}

TEST(Exhaustion, EndsTheProcessInTheCFamilies) {
  static constexpr unsigned long long kHalf = 1ULL << 32;  // the product is 0 in 64 bits
  void (*const kCalls[])() = {[] {
                                dymarray_t array;
                                dymarray_init(&array, kHalf, kHalf);
                                dymarray_alloc(&array);
                              },
                              [] {
                                dympool_t pool;
                                dympool_init(&pool, kHalf, kHalf);
                                dympool_alloc(&pool);
                              },
                              [] { dympage_create2(~0ULL); }};
  for (const auto call : kCalls) {
    EXPECT_EXIT(call(), testing::KilledBySignal(SIGABRT), "(^|\n)Out of memory!\n$");
  }
}

TEST(CFamilies, RefuseWhatTheyCannotHold) {
  EXPECT_EQ(bucket_push(bucket_append_int(bucket_append(nullptr, "a"), 1), 'b'), nullptr);
  bucket_t* const none = bucket_release(bucket_drop(bucket_nil(nullptr), 1));
  EXPECT_EQ(bucket_cstring(bucket_appendv(none, "a", nullptr)), nullptr);
  for (const auto& [size, per_page] : {std::pair(8U, 1U), {7U, 2U}}) {
    dympool_t pool;
    dympool_init(&pool, size, per_page);
    EXPECT_EQ(dympool_alloc(&pool), nullptr);
  }
}
