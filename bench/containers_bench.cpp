// The containers of core/ compared with those of the standard library and of Boost. Every contender
// does the same work: memory that ours zeroes is zeroed for the others, too, and all is freed.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <memory_resource>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "core/bucket.h"
#include "core/buffer.h"
#include "core/dymarray.h"
#include "core/dympage.h"
#include "core/dympool.h"

#ifdef RUNENV_BENCH_BOOST
#include <boost/pool/pool.hpp>
#endif

template <typename Work>
static void add(const std::string& name, Work work) {
  benchmark::RegisterBenchmark(name.c_str(), [work](benchmark::State& state) {
    for (auto _ : state) {
      work();
    }
  })->UseRealTime();
}

// Returns `n` numbers between `low` and `high`, the same in every run.
static std::vector<size_t> sizes(size_t n, size_t low, size_t high) {
  std::mt19937 random(1);
  std::vector<size_t> all(n);
  std::generate(all.begin(), all.end(), [&] { return low + random() % (high - low + 1); });
  return all;
}

// Page allocators, all with pages of 10 MiB.

struct OurPages {
  dympage_t pages;
  OurPages() { dympage_init(&pages); }
  ~OurPages() { dympage_destroy(&pages); }
  void* take(size_t size) { return dympage_alloc(&pages, size, 8); }
};

template <bool zeroed>
struct StandardPages {
  std::pmr::monotonic_buffer_resource pages{10 * 1024 * 1024};
  void* take(size_t size) {
    void* const block = pages.allocate(size, 8);
    return zeroed ? std::memset(block, 0, size) : block;
  }
};

template <typename Pages>
static void add_pages(const std::string& contender) {
  const auto carve = [](const std::vector<size_t>& blocks) {
    Pages pages;
    for (const size_t size : blocks) {
      char* const block = static_cast<char*>(pages.take(size));
      *block = 'x';
      benchmark::DoNotOptimize(block);
    }
    benchmark::ClobberMemory();
  };
  add("dympage, 64-byte blocks/" + contender,
      [carve, blocks = sizes(50000, 64, 64)] { carve(blocks); });
  add("dympage, blocks of 1 to 256 bytes/" + contender,
      [carve, blocks = sizes(50000, 1, 256)] { carve(blocks); });
}

// Pools of 64-byte elements.

static constexpr size_t kElement = 64;

struct OurPool {
  dympool_t pool;
  OurPool() { dympool_init(&pool, kElement, 1024); }
  ~OurPool() { dympool_destroy(&pool); }
  void* take() { return dympool_alloc(&pool); }
  void give(void* element) { dympool_free(&pool, element); }
};

struct StandardPool {
  std::pmr::unsynchronized_pool_resource pool;
  void* take() { return std::memset(pool.allocate(kElement, 8), 0, kElement); }
  void give(void* element) { pool.deallocate(element, kElement, 8); }
};

#ifdef RUNENV_BENCH_BOOST
struct BoostPool {
  boost::pool<> pool{kElement, 1024};
  void* take() { return std::memset(pool.malloc(), 0, kElement); }
  void give(void* element) { pool.free(element); }
};
#endif

// Allocates one element for each number in `order`, and frees them in that order.
template <typename Pool>
static void add_pool(const std::string& contender) {
  std::vector<size_t> last_out(4000);
  std::iota(last_out.rbegin(), last_out.rend(), 0);
  std::vector<size_t> shuffled = last_out;
  std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(1));
  const auto churn = [](const std::vector<size_t>& order) {
    Pool pool;
    std::vector<void*> taken(order.size());
    for (int round = 0; round < 8; ++round) {
      for (void*& element : taken) {
        element = pool.take();
        benchmark::DoNotOptimize(element);
      }
      for (const size_t i : order) {
        pool.give(taken[i]);
      }
      benchmark::ClobberMemory();
    }
  };
  add("dympool, last in first out/" + contender, [=] { churn(last_out); });
  add("dympool, given back at random/" + contender, [=] { churn(shuffled); });
}

// Arrays of 16-byte elements.

struct Element {
  uint64_t number, other;
};

template <size_t step>
struct OurArray {
  dymarray_t array;
  OurArray() { dymarray_init(&array, sizeof(Element), step); }
  ~OurArray() { dymarray_destroy(&array); }
  Element* append() { return static_cast<Element*>(dymarray_alloc(&array)); }
};

struct StandardArray {
  std::vector<Element> array;
  Element* append() { return &array.emplace_back(); }
};

template <typename Array>
static void add_array(const std::string& contender) {
  add("dymarray, append 100000/" + contender, [] {
    Array array;
    for (size_t i = 0; i < 100000; ++i) {
      array.append()->number = i;
    }
    benchmark::ClobberMemory();
  });
}

// Byte buffers.

struct OurBytes {
  Buffer bytes{0};
  void append(const char* source, size_t n) { bytes.append(source, n); }
};

template <typename Bytes>
static void add_buffer(const std::string& contender) {
  static const std::string source(1 << 20, 'x');
  const auto gather = [](const std::vector<size_t>& pieces) {
    Bytes bytes;
    for (const size_t n : pieces) {
      bytes.append(source.data(), n);
    }
    benchmark::DoNotOptimize(bytes);
    benchmark::ClobberMemory();
  };
  add("Buffer, 10,000 appends of 1 to 16 bytes/" + contender,
      [gather, pieces = sizes(10000, 1, 16)] { gather(pieces); });
  add("Buffer, 8 appends of 1 MiB/" + contender,
      [gather, pieces = sizes(8, source.size(), source.size())] { gather(pieces); });
}

// String builders.

struct OurText {
  bucket_t text{};
  ~OurText() { bucket_release(&text); }
  void append(const char* part) { bucket_append(&text, part); }
  const char* c_str() { return bucket_cstring(&text); }
};

template <typename Text>
static void add_builder(const std::string& contender) {
  const auto build = [](int times) {
    Text text;
    for (int i = 0; i < times; ++i) {
      for (const char* part : {"runenv", "/", "system-types", "/", "text-editor", "/", "1.24.3"}) {
        text.append(part);
      }
    }
    benchmark::DoNotOptimize(text.c_str());
  };
  add("bucket, path of four names/" + contender, [build] { build(1); });
  add("bucket, text of 4 KiB/" + contender, [build] { build(100); });
}

[[maybe_unused]] static const bool added = [] {
  add_pages<OurPages>("runenv");
  add_pages<StandardPages<true>>("std::pmr::monotonic_buffer_resource");
  add_pages<StandardPages<false>>("std::pmr::monotonic_buffer_resource without zeroing");
  add_pool<OurPool>("runenv");
  add_pool<StandardPool>("std::pmr::unsynchronized_pool_resource");
#ifdef RUNENV_BENCH_BOOST
  add_pool<BoostPool>("boost::pool");
#endif
  add_array<OurArray<64>>("runenv");
  add_array<OurArray<4096>>("runenv with a step of 4096");
  add_array<StandardArray>("std::vector");
  add_buffer<OurBytes>("runenv");
  add_buffer<std::string>("std::string");
  add_builder<OurText>("runenv");
  add_builder<std::string>("std::string");
  return true;
}();
