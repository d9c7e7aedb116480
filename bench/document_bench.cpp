// Reading and writing a version info document in memory, compared with a std::map of the same bytes
// and a protobuf message of the same content, whose map is an unordered hash table. The time
// includes freeing the result.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/big_endian.h"
#include "core/buffer.h"
#include "core/owner.h"
#include "schema/version_info.h"
#include "schema/version_info_bin.h"

#ifdef RUNENV_BENCH_PROTOBUF
#include "document.pb.h"
#endif

using Types = std::vector<std::pair<std::string, std::string>>;  // names and versions

static Types make_types(size_t n, bool shuffled) {
  static const char* const kWords[] = {"audio", "camera", "editor", "kernel", "network", "storage"};
  std::mt19937 random(1);
  Types types(n);
  for (size_t i = 0; i < n; ++i) {
    types[i] = {kWords[random() % 6] + ("-driver-" + std::to_string(1000 + i)),
                std::to_string(random() % 20) + "." + std::to_string(random() % 100) + ".0"};
  }
  std::sort(types.begin(), types.end());
  if (shuffled) {
    std::shuffle(types.begin(), types.end(), random);
  }
  return types;
}

static const std::string kFingerprint =
    "d95b246cca0c3b04d105771d58246fa0e706a6d44ac97d6cb4bab99390a02582";

static std::string number(size_t value) {
  std::string bytes(4, '\0');
  runenv::write_big_endian(bytes.data(), static_cast<uint32_t>(value));
  return bytes;
}

template <typename Range>
static std::string binary(const std::string& platform, const Range& types) {
  std::string bytes = kFingerprint + number(platform.size()) + platform + number(types.size());
  for (const auto& [name, version] : types) {
    bytes.append(number(name.size())).append(name).append(number(version.size())).append(version);
  }
  return bytes;
}

// Each contender reads bytes into a result and writes that result into its own bytes. `valid` says
// whether reading succeeded. `write` returns the number of bytes.

struct OurDocument {
  static std::string encode(const Types& types) { return binary("2.0", types); }

  runenv::owner<dympage_t, image___version_info___destroy_allocator_f> pages{
      image___version_info___create_allocator_f()};
  image___version_info___root_t* root = image___version_info___root_t___allocate_f(pages.get());
  bool valid;

  explicit OurDocument(const std::string& bytes) {
    const runenv::owner<istream, istream_destroy> stream(
        istream_create_memory(bytes.data(), bytes.size()));
    valid = image___version_info___parse_bin_f(pages.get(), root, stream.get()) == 0;
  }
  size_t write() const {
    Buffer bytes(0);
    image___version_info___write_bin_f(root, &bytes);
    return bytes.size;
  }
};

struct MapDocument {
  static std::string encode(const Types& types) { return binary("2.0", types); }

  std::string platform;
  std::map<std::string, std::string> types;
  bool valid = true;

  explicit MapDocument(const std::string& bytes) : rest(bytes) {
    valid = take(kFingerprint.size()) == kFingerprint;
    platform = take_text();
    for (size_t left = take_number(); valid && left != 0; --left) {
      const std::string_view name = take_text(), version = take_text();
      valid &= types.emplace(name.substr(0, name.find('\0')), version).second;
    }
    valid &= rest.empty();
  }
  size_t write() const { return binary(platform, types).size(); }

 private:
  std::string_view take(size_t n) {
    const std::string_view bytes = rest.substr(0, n);
    valid &= bytes.size() == n;
    rest.remove_prefix(bytes.size());
    return bytes;
  }
  size_t take_number() {
    const std::string_view bytes = take(4);
    return valid ? runenv::read_big_endian(bytes.data()) : 0;
  }
  std::string_view take_text() { return take(take_number()); }

  std::string_view rest;
};

#ifdef RUNENV_BENCH_PROTOBUF
struct ProtobufDocument {
  static std::string encode(const Types& types) {
    bench::Document document;
    document.set_platform_version("2.0");
    document.mutable_system_types()->insert(types.begin(), types.end());
    return document.SerializeAsString();
  }

  bench::Document document;
  bool valid;

  explicit ProtobufDocument(const std::string& bytes) : valid(document.ParseFromString(bytes)) {}
  size_t write() const { return document.SerializeAsString().size(); }
};
#endif

template <typename Document>
static void read(benchmark::State& state, size_t n, bool shuffled) {
  const std::string bytes = Document::encode(make_types(n, shuffled));
  for (auto _ : state) {
    const Document document(bytes);
    benchmark::DoNotOptimize(&document);
    benchmark::ClobberMemory();
    if (!document.valid) {
      state.SkipWithError("not read");
    }
  }
}

template <typename Document>
static void write(benchmark::State& state, size_t n) {
  const std::string bytes = Document::encode(make_types(n, false));
  const Document document(bytes);
  for (auto _ : state) {
    if (document.write() != bytes.size()) {
      state.SkipWithError("not written");
    }
  }
}

template <typename Document>
static void add(const std::string& contender) {
  const auto add_case = [&](const std::string& name, auto run) {
    benchmark::RegisterBenchmark((name + " entries/" + contender).c_str(), run)->UseRealTime();
  };
  for (const size_t n : {10U, 100U, 1000U}) {
    const std::string number = n < 1000 ? std::to_string(n) : "1,000";
    add_case("read " + number, [=](auto& state) { read<Document>(state, n, false); });
    add_case("read " + number + " shuffled", [=](auto& state) { read<Document>(state, n, true); });
    add_case("write " + number, [=](auto& state) { write<Document>(state, n); });
  }
}

[[maybe_unused]] static const bool added = [] {
  add<OurDocument>("runenv");
  add<MapDocument>("std::map");
#ifdef RUNENV_BENCH_PROTOBUF
  add<ProtobufDocument>("protobuf");
#endif
  return true;
}();
