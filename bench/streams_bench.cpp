// The streams compared with those of the C library and the C++ library, on a file in the page
// cache. Each run opens the file, reads or writes all of it and closes it.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "core/owner.h"
#include "stream/instream.h"
#include "stream/outstream.h"

static constexpr size_t kFileSize = size_t{100} << 20;
static constexpr size_t kWritten = size_t{8} << 20;

// Files to read and to write, removed at the end.
struct Files {
  const std::filesystem::path directory =
      std::filesystem::temp_directory_path() / ("runenv-bench-" + std::to_string(getpid()));
  const std::string large = directory / "large", target = directory / "target";
  Files() {
    std::filesystem::create_directory(directory);
    std::ofstream(large, std::ios::binary) << std::string(kFileSize, 'x');
  }
  ~Files() { std::filesystem::remove_all(directory); }
};

static const Files& files() {
  static const Files all;
  return all;
}

// Registers the benchmark `run`, which returns whether it has read or written all bytes.
template <typename Run>
static void add(const std::string& name, Run run) {
  const auto loop = [=](benchmark::State& state) {
    files();  // creates the files before the time is measured
    for (auto _ : state) {
      if (!run()) {
        state.SkipWithError("bytes are missing");
      }
    }
  };
  benchmark::RegisterBenchmark(name.c_str(), loop)->UseRealTime()->Unit(benchmark::kMicrosecond);
}

// Readers and writers. `get` reads up to `n` bytes and returns how many, 0 at the end.

struct OurWriter {
  OutstreamPathImpl file;
  Outstream stream{file.stream()};
  OurWriter(const std::string& path, const char*) : file(path, false) {}
  ~OurWriter() { (void)file.finalize(); }
  void put(const char* bytes, size_t n) { stream.write_len(bytes, n); }
};

struct OurReader {
  InstreamPathImpl file;
  OurReader(const std::string& path, const char*) : file(path) {}
  size_t get(char* bytes, size_t n) {
    // The file's size is a multiple of every `n`.
    return Instream(file.stream()).read_len(bytes, static_cast<unsigned>(n)) ? n : 0;
  }
};

// `buffer_size` 0 stands for the default buffer of the C library.
template <size_t buffer_size = 0>
struct CFile {
  std::vector<char> buffer = std::vector<char>(buffer_size);
  const runenv::owner<FILE, std::fclose> file;
  CFile(const std::string& path, const char* mode) : file(std::fopen(path.c_str(), mode)) {
    if (buffer_size != 0) {
      std::setvbuf(file.get(), buffer.data(), _IOFBF, buffer_size);
    }
  }
  void put(const char* bytes, size_t n) { std::fwrite(bytes, 1, n, file.get()); }
  size_t get(char* bytes, size_t n) { return std::fread(bytes, 1, n, file.get()); }
};

template <typename Stream>
struct StandardFile {
  Stream file;
  StandardFile(const std::string& path, const char*) : file(path, std::ios::binary) {}
  void put(const char* bytes, size_t n) { file.write(bytes, static_cast<std::streamsize>(n)); }
  size_t get(char* bytes, size_t n) {
    return static_cast<size_t>(file.read(bytes, static_cast<std::streamsize>(n)).gcount());
  }
};

struct BareReader {
  runenv::unique_fd file;
  BareReader(const std::string& path, const char*)
      : file(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
  size_t get(char* bytes, size_t n) {
    return static_cast<size_t>(std::max<ssize_t>(0, ::read(file.get(), bytes, n)));
  }
};

template <typename Writer>
static bool write_file(const std::vector<size_t>& pieces) {
  static const std::string source(4096, 'x');
  auto writer = std::make_unique<Writer>(files().target, "wb");
  for (size_t written = 0; written < kWritten;) {
    for (const size_t n : pieces) {
      writer->put(source.data(), n);
      written += n;
    }
  }
  writer.reset();
  return std::filesystem::file_size(files().target) == kWritten;
}

template <typename Writer>
static void add_writer(const std::string& contender) {
  add("Outstream, writes of 8 bytes/" + contender, [] { return write_file<Writer>({8}); });
  add("Outstream, writes of 1 to 900 bytes/" + contender, [] {
    return write_file<Writer>({1, 8, 3, 60, 24, 900, 16, 12});
  });
}

template <typename Reader>
static bool read_file(size_t piece) {
  Reader reader(files().large, "rb");
  const auto bytes = std::make_unique_for_overwrite<char[]>(piece);
  size_t total = 0;
  for (size_t n; (n = reader.get(bytes.get(), piece)) != 0; total += n) {
    benchmark::DoNotOptimize(*bytes.get());
  }
  return total == kFileSize;
}

template <typename Reader>
static void add_reader(const std::string& contender) {
  add("Instream, 100 MiB by 64 bytes/" + contender, [] { return read_file<Reader>(64); });
  add("Instream, 100 MiB by 64 KiB/" + contender, [] { return read_file<Reader>(65536); });
}

// Reading the whole file into one block of memory.
static void add_collectors() {
  const std::string name = "Instream, 100 MiB collected/";
  add(name + "runenv",
      [] { return Buffer(false, InstreamPathImpl(files().large).stream()).length() == kFileSize; });
  add(name + "read", [] { return read_file<BareReader>(kFileSize); });
  add(name + "std::istreambuf_iterator", [] {
    std::ifstream file(files().large, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(file)), {}).size() == kFileSize;
  });
}

[[maybe_unused]] static const bool added = [] {
  add_writer<OurWriter>("runenv");
  add_writer<CFile<>>("fwrite");
  add_writer<CFile<OutstreamCache::kStageSize>>("fwrite, 1 MiB buffer");
  add_writer<StandardFile<std::ofstream>>("std::ofstream");
  add_reader<OurReader>("runenv");
  add_reader<CFile<>>("fread");
  add_reader<CFile<65536>>("fread, 64 KiB buffer");
  add_reader<StandardFile<std::ifstream>>("std::ifstream");
  add_reader<BareReader>("read");
  add_collectors();
  return true;
}();
