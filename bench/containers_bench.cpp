// The containers of core/ beside those of the standard library and of Boost. Every contender does
// the same work: what ours zeroes, the others have zeroed as well, and all is freed again.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <memory_resource>
#include <random>
#include <sstream>
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

// Registers `work` as one benchmark, `items` of which make one run.
template <typename Work>
static void add(const std::string& name, size_t items, Work work) {
  const auto run = [items, work](benchmark::State& state) mutable {
    for (auto _ : state) {
      work();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(items));
  };
  benchmark::RegisterBenchmark(name.c_str(), run)->UseRealTime();
}

// `n` numbers between `low` and `high`, the same in every run.
static std::vector<size_t> sizes(size_t n, size_t low, size_t high) {
  std::mt19937 random(1);
  std::vector<size_t> all(n);
  for (size_t& size : all) {
    size = low + random() % (high - low + 1);
  }
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
static void carve(const std::vector<size_t>& blocks) {
  Pages pages;
  for (const size_t size : blocks) {
    char* const block = static_cast<char*>(pages.take(size));
    *block = 'x';
    benchmark::DoNotOptimize(block);
  }
  benchmark::ClobberMemory();
}

static void add_pages() {
  const struct {
    const char* name;
    std::vector<size_t> blocks;
  } kCases[] = {{"dympage, 64-byte blocks/", sizes(50000, 64, 64)},
                {"dympage, blocks of 1 to 256 bytes/", sizes(50000, 1, 256)}};
  for (const auto& [name, case_blocks] : kCases) {
    const std::vector<size_t>& blocks = case_blocks;
    const std::string standard = std::string(name) + "std::pmr::monotonic_buffer_resource";
    add(std::string(name) + "runenv", 50000, [blocks] { carve<OurPages>(blocks); });
    add(standard, 50000, [blocks] { carve<StandardPages<true>>(blocks); });
    add(standard + " without zeroing", 50000, [blocks] { carve<StandardPages<false>>(blocks); });
  }
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
template <bool zeroed>
struct BoostPool {
  boost::pool<> pool{kElement, 1024};
  void* take() {
    void* const element = pool.malloc();
    return zeroed ? std::memset(element, 0, kElement) : element;
  }
  void give(void* element) { pool.free(element); }
};
#endif

// Takes as many elements as there are in `order`, and gives them back in that order.
template <typename Pool>
static void churn(const std::vector<size_t>& order) {
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
}

static void add_pools() {
  std::vector<size_t> first_out(4000);
  for (size_t i = 0; i < first_out.size(); ++i) {
    first_out[i] = i;
  }
  std::vector<size_t> last_out(first_out.rbegin(), first_out.rend());
  std::vector<size_t> shuffled = first_out;
  std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(1));
  const struct {
    const char* name;
    std::vector<size_t> order;
  } kCases[] = {{"dympool, last in first out/", last_out},
                {"dympool, first in first out/", first_out},
                {"dympool, given back at random/", shuffled}};
  for (const auto& [name, case_order] : kCases) {
    const std::vector<size_t>& order = case_order;
    const size_t items = 8 * order.size();
    const std::string head = name;
    add(head + "runenv", items, [order] { churn<OurPool>(order); });
    add(head + "std::pmr::unsynchronized_pool_resource", items,
        [order] { churn<StandardPool>(order); });
#ifdef RUNENV_BENCH_BOOST
    add(head + "boost::pool", items, [order] { churn<BoostPool<true>>(order); });
    add(head + "boost::pool without zeroing", items, [order] { churn<BoostPool<false>>(order); });
#endif
  }
}

// Arrays of 16-byte elements.

struct Element {
  uint64_t number, other;
};

static dymarray_t our_array(size_t n, size_t step) {
  dymarray_t array;
  dymarray_init(&array, sizeof(Element), step);
  for (size_t i = 0; i < n; ++i) {
    static_cast<Element*>(dymarray_alloc(&array))->number = i;
  }
  return array;
}

static std::vector<Element> standard_array(size_t n) {
  std::vector<Element> array;
  for (size_t i = 0; i < n; ++i) {
    array.emplace_back().number = i;
  }
  return array;
}

static uint64_t sum_of(const dymarray_t* array) {
  uint64_t sum = 0;
  const void* const end = dymarray_cend(array);
  for (const void* i = dymarray_cbegin(array); i != end; i = dymarray_cnext(array, i)) {
    sum += static_cast<const Element*>(i)->number;
  }
  return sum;
}

static void add_arrays() {
  for (const size_t n : {size_t{1000}, size_t{100000}}) {
    const std::string append = "dymarray, append " + std::to_string(n) + "/";
    for (const size_t step : {size_t{64}, size_t{4096}}) {
      add(append + (step == 64 ? "runenv" : "runenv with a step of 4096"), n, [n, step] {
        dymarray_t array = our_array(n, step);
        benchmark::DoNotOptimize(array.data);
        dymarray_destroy(&array);
      });
    }
    add(append + "std::vector", n, [n] {
      const std::vector<Element> array = standard_array(n);
      benchmark::DoNotOptimize(array.data());
    });
  }
  static const dymarray_t ours = our_array(100000, 64);
  add("dymarray, iterate/runenv", ours.count, [] { benchmark::DoNotOptimize(sum_of(&ours)); });
  add("dymarray, iterate/std::vector", ours.count, [array = standard_array(ours.count)] {
    uint64_t sum = 0;
    for (const Element& element : array) {
      sum += element.number;
    }
    benchmark::DoNotOptimize(sum);
  });
}

// Byte buffers.

struct OurBytes {
  Buffer bytes{0};
  void put(const char* source, size_t n) { bytes.append(source, n); }
};

struct StringBytes {
  std::string bytes;
  void put(const char* source, size_t n) { bytes.append(source, n); }
};

struct VectorBytes {
  std::vector<char> bytes;
  void put(const char* source, size_t n) { bytes.insert(bytes.end(), source, source + n); }
};

template <typename Bytes>
static void gather(const std::string& source, const std::vector<size_t>& pieces) {
  Bytes bytes;
  for (const size_t n : pieces) {
    bytes.put(source.data(), n);
  }
  benchmark::DoNotOptimize(bytes);
  benchmark::ClobberMemory();
}

static void add_buffers() {
  static const std::string source(1 << 20, 'x');
  const struct {
    const char* name;
    std::vector<size_t> pieces;
  } kCases[] = {{"Buffer, 10,000 appends of 1 to 16 bytes/", sizes(10000, 1, 16)},
                {"Buffer, 10,000 appends of 200 to 300 bytes/", sizes(10000, 200, 300)},
                {"Buffer, 8 appends of 1 MiB/", sizes(8, 1 << 20, 1 << 20)}};
  for (const auto& [name, case_pieces] : kCases) {
    const std::vector<size_t>& pieces = case_pieces;
    const std::string head = name;
    const size_t n = pieces.size();
    add(head + "runenv", n, [pieces] { gather<OurBytes>(source, pieces); });
    add(head + "std::string", n, [pieces] { gather<StringBytes>(source, pieces); });
    add(head + "std::vector", n, [pieces] { gather<VectorBytes>(source, pieces); });
  }
}

// String builders.

struct OurText {
  bucket_t text{};
  ~OurText() { bucket_release(&text); }
  void put(const char* part) { bucket_append(&text, part); }
  void put_number(long long number) { bucket_append_int(&text, number); }
  const char* finish() { return bucket_cstring(&text); }
};

struct StringText {
  std::string text;
  void put(const char* part) { text += part; }
  void put_number(long long number) { text += std::to_string(number); }
  const char* finish() { return text.c_str(); }
};

struct StreamText {
  std::ostringstream stream;
  std::string text;
  void put(const char* part) { stream << part; }
  void put_number(long long number) { stream << number; }
  const char* finish() { return (text = stream.str()).c_str(); }
};

template <typename Text>
static void build_paths(int times) {
  for (int i = 0; i < 100; ++i) {
    Text text;
    for (int time = 0; time < times; ++time) {
      for (const char* part : {"runenv", "/", "system-types", "/", "text-editor", "/", "1.24.3"}) {
        text.put(part);
      }
    }
    benchmark::DoNotOptimize(text.finish());
  }
}

template <typename Text>
static void build_numbers() {
  Text text;
  for (long long number = 1; number < 1'000'000'000'000; number = number * 3 + 1) {
    text.put_number(number);
    text.put_number(-number);
  }
  benchmark::DoNotOptimize(text.finish());
}

template <typename Text>
static void add_builder(const std::string& contender) {
  add("bucket, path of four names/" + contender, 700, [] { build_paths<Text>(1); });
  add("bucket, text of 4 KiB/" + contender, 70000, [] { build_paths<Text>(100); });
  add("bucket, numbers/" + contender, 52, [] { build_numbers<Text>(); });
}

[[maybe_unused]] static const bool added = [] {
  add_pages();
  add_pools();
  add_arrays();
  add_buffers();
  add_builder<OurText>("runenv");
  add_builder<StringText>("std::string");
  add_builder<StreamText>("std::ostringstream");
  return true;
}();
