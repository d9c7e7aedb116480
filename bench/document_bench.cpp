// Reading a version info document from memory beside filling a std::map from the same bytes and
// beside a protobuf message of the same content (whose map is a hash table, without an order).
// Freeing the result is part of the time. The counter `bytes` is the memory that the result holds.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "core/buffer.h"
#include "schema/version_info.h"
#include "schema/version_info_bin.h"

#ifdef RUNENV_BENCH_PROTOBUF
#include "document.pb.h"
#endif

struct Type {
  std::string name, version;
};
using Types = std::vector<Type>;

static Types make_types(size_t n, bool shuffled) {
  static const char* const kWords[] = {"audio", "camera", "editor", "kernel", "network", "storage"};
  std::mt19937 random(1);
  Types types(n);
  for (size_t i = 0; i < n; ++i) {
    const std::string number = std::to_string(10'000'000 + i).substr(1);
    types[i] = {kWords[random() % 6] + ("-driver-" + number),
                std::to_string(random() % 20) + "." + std::to_string(random() % 100) + ".0"};
  }
  std::sort(types.begin(), types.end(), [](auto& a, auto& b) { return a.name < b.name; });
  if (shuffled) {
    std::shuffle(types.begin(), types.end(), random);
  }
  return types;
}

static const Types& types_of(size_t n, bool shuffled) {
  static std::map<std::pair<size_t, bool>, Types> made;
  Types& types = made[{n, shuffled}];
  return types.empty() ? types = make_types(n, shuffled) : types;
}

static std::string number(size_t n) {
  return {char(n >> 24), char(n >> 16), char(n >> 8), char(n)};
}

static const std::string kFingerprint =
    "d95b246cca0c3b04d105771d58246fa0e706a6d44ac97d6cb4bab99390a02582";

static std::string binary(const Types& types) {
  std::string bytes = kFingerprint + number(3) + "2.0" + number(types.size());
  for (const auto& [name, version] : types) {
    bytes += number(name.size()) + name + number(version.size()) + version;
  }
  return bytes;
}

// Each contender reads bytes into a result that it frees at its end; `valid` says that all was as
// it should be.

struct OurDocument {
  static std::string encode(const Types& types) { return binary(types); }

  dympage_t* pages = image___version_info___create_allocator_f();
  image___version_info___root_t* root = image___version_info___root_t___allocate_f(pages);
  bool valid;

  explicit OurDocument(const std::string& bytes) {
    istream* const stream = istream_create_memory(bytes.data(), bytes.size());
    valid = image___version_info___parse_bin_f(pages, root, stream) == 0;
    istream_destroy(stream);
  }
  ~OurDocument() { image___version_info___destroy_allocator_f(pages); }

  // The rest of the last page has never been touched.
  size_t unused() const { return dympage_overhead(pages); }
};

// With a hint, entries in order find their place at the end at once.
template <bool hinted>
struct MapDocument {
  static std::string encode(const Types& types) { return binary(types); }

  std::string platform;
  std::map<std::string, std::string> types;
  bool valid;

  explicit MapDocument(const std::string& bytes) : rest(bytes.data()), left(bytes.size()) {
    valid = read();
  }
  static size_t unused() { return 0; }

 private:
  bool take(const char** start, size_t n) {
    if (left < n) {
      return false;
    }
    *start = rest;
    rest += n;
    left -= n;
    return true;
  }
  bool read_number(size_t* value) {
    const char* bytes;
    if (!take(&bytes, 4)) {
      return false;
    }
    uint32_t big_endian;
    std::memcpy(&big_endian, bytes, sizeof big_endian);
    *value = __builtin_bswap32(big_endian);
    return true;
  }
  bool read_text(std::string* text) {
    size_t length;
    const char* bytes;
    if (!read_number(&length) || !take(&bytes, length)) {
      return false;
    }
    text->assign(bytes, length);
    return true;
  }
  bool read() {
    const char* fingerprint;
    size_t count;
    if (!take(&fingerprint, 64) || std::memcmp(fingerprint, kFingerprint.data(), 64) != 0 ||
        !read_text(&platform) || !read_number(&count)) {
      return false;
    }
    while (count-- != 0) {
      std::string name, version;
      if (!read_text(&name)) {
        return false;
      }
      name.resize(strnlen(name.c_str(), name.size()));
      const size_t before = types.size();
      const auto place = hinted ? types.try_emplace(types.end(), std::move(name))
                                : types.try_emplace(std::move(name)).first;
      if (types.size() == before || !read_text(&place->second)) {
        return false;
      }
    }
    return left == 0;
  }

  const char* rest;
  size_t left;
};

#ifdef RUNENV_BENCH_PROTOBUF
struct ProtobufDocument {
  static std::string encode(const Types& types) {
    bench::Document head;
    head.set_platform_version("2.0");
    std::string bytes = head.SerializeAsString();
    for (const auto& [name, version] : types) {  // messages in a row are one message
      bench::Document entry;
      (*entry.mutable_system_types())[name] = version;
      entry.AppendToString(&bytes);
    }
    return bytes;
  }

  bench::Document document;
  bool valid;

  explicit ProtobufDocument(const std::string& bytes)
      : valid(document.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) {}
  static size_t unused() { return 0; }
};
#endif

static size_t allocated() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

// What a contender reads, and the memory that the result holds.
struct Case {
  std::string bytes;
  size_t held = 0;
};

template <typename Document>
static const Case& case_of(size_t n, bool shuffled) {
  static std::map<std::pair<size_t, bool>, Case> made;
  Case& each = made[{n, shuffled}];
  if (each.held == 0) {
    each.bytes = Document::encode(types_of(n, shuffled));
    const size_t before = allocated();
    const auto document = std::make_unique<Document>(each.bytes);
    each.held = allocated() - before - document->unused();
  }
  return each;
}

template <typename Document>
static void read(benchmark::State& state, size_t n, bool shuffled) {
  const Case& each = case_of<Document>(n, shuffled);
  for (auto _ : state) {
    const Document document(each.bytes);
    benchmark::DoNotOptimize(&document);
    benchmark::ClobberMemory();
    if (!document.valid) {
      state.SkipWithError("not read");
    }
  }
  state.counters["bytes"] = static_cast<double>(each.held);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(n));
}

template <typename Document>
static void add(const std::string& contender) {
  for (const size_t n : {size_t{1000}, size_t{1000000}}) {
    for (const bool shuffled : {false, true}) {
      const std::string name = std::string("document, ") + (n == 1000 ? "1,000" : "1,000,000") +
                               (shuffled ? " shuffled" : " sorted") + " entries/" + contender;
      const auto run = [=](benchmark::State& state) { read<Document>(state, n, shuffled); };
      benchmark::RegisterBenchmark(name.c_str(), run)->UseRealTime()->Unit(benchmark::kMicrosecond);
    }
  }
}

[[maybe_unused]] static const bool added = [] {
  add<OurDocument>("runenv");
  add<MapDocument<false>>("std::map");
  add<MapDocument<true>>("std::map with a hint");
#ifdef RUNENV_BENCH_PROTOBUF
  add<ProtobufDocument>("protobuf");
#endif
  return true;
}();
