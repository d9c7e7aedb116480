// The streams beside the C library's and the standard library's, on a file in the page cache. Each
// run opens the file, reads or writes it whole and closes it.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "core/owner.h"
#include "stream/instream.h"
#include "stream/outstream.h"

static constexpr size_t kFileSize = size_t{100} << 20;
static constexpr size_t kWritten = size_t{8} << 20;

// A file that is removed at the end, `size` bytes long.
class TemporaryFile {
 public:
  explicit TemporaryFile(size_t size) {
    name = std::filesystem::temp_directory_path() / "runenv-bench-XXXXXX";
    const runenv::unique_fd file(mkstemp(name.data()));
    const std::string block(1 << 20, 'x');
    for (size_t written = 0; written < size; written += block.size()) {
      if (write(file.get(), block.data(), block.size()) != static_cast<ssize_t>(block.size())) {
        std::perror(name.c_str());
        std::exit(1);
      }
    }
  }
  ~TemporaryFile() { std::remove(name.c_str()); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  std::string name;
};

static const char* large_file() {
  static const TemporaryFile file(kFileSize);
  return file.name.c_str();
}

// Writers.

struct OurWriter {
  OutstreamPathImpl file;
  Outstream stream{file.stream()};
  explicit OurWriter(const char* path) : file(path, false) {}
  ~OurWriter() { (void)file.finalize(); }
  void put(const char* bytes, size_t n) { stream.write_len(bytes, n); }
};

// With a buffer of the C library's size unless one is given.
struct CFile {
  FILE* file;
  std::vector<char> buffer;
  CFile(const char* path, const char* mode, size_t buffer_size = 0)
      : file(std::fopen(path, mode)), buffer(buffer_size) {
    if (!buffer.empty()) {
      std::setvbuf(file, buffer.data(), _IOFBF, buffer.size());
    }
  }
  ~CFile() { std::fclose(file); }
  CFile(const CFile&) = delete;
  CFile& operator=(const CFile&) = delete;
};

template <size_t buffer_size>
struct CWriter : CFile {
  explicit CWriter(const char* path) : CFile(path, "wb", buffer_size) {}
  void put(const char* bytes, size_t n) { std::fwrite(bytes, 1, n, file); }
};

struct UnlockedWriter : CFile {
  explicit UnlockedWriter(const char* path) : CFile(path, "wb") {}
  void put(const char* bytes, size_t n) { fwrite_unlocked(bytes, 1, n, file); }
};

struct StandardWriter {
  std::ofstream file;
  explicit StandardWriter(const char* path) : file(path, std::ios::binary) {}
  void put(const char* bytes, size_t n) { file.write(bytes, static_cast<std::streamsize>(n)); }
};

template <typename Writer>
static void write_file(const char* path, const std::vector<size_t>& pieces) {
  static const std::string source(4096, 'x');
  Writer writer(path);
  for (size_t written = 0; written < kWritten;) {
    for (const size_t n : pieces) {
      writer.put(source.data(), n);
      written += n;
    }
  }
}

// Readers; each delivers up to `n` bytes, 0 at the end.

struct OurReader {
  InstreamPathImpl file;
  explicit OurReader(const char* path) : file(path) {}
  size_t get(char* bytes, size_t n) {
    // The file's size is a multiple of every `n`.
    return Instream(file.stream()).read_len(bytes, static_cast<unsigned>(n)) ? n : 0;
  }
};

template <size_t buffer_size>
struct CReader : CFile {
  explicit CReader(const char* path) : CFile(path, "rb", buffer_size) {}
  size_t get(char* bytes, size_t n) { return std::fread(bytes, 1, n, file); }
};

struct StandardReader {
  std::ifstream file;
  explicit StandardReader(const char* path) : file(path, std::ios::binary) {}
  size_t get(char* bytes, size_t n) {
    file.read(bytes, static_cast<std::streamsize>(n));
    return static_cast<size_t>(file.gcount());
  }
};

struct BareReader {
  runenv::unique_fd file;
  explicit BareReader(const char* path) : file(open(path, O_RDONLY | O_CLOEXEC)) {}
  size_t get(char* bytes, size_t n) {
    const ssize_t got = ::read(file.get(), bytes, n);
    return got < 0 ? 0 : static_cast<size_t>(got);
  }
};

template <typename Reader>
static size_t read_file(const char* path, size_t piece) {
  Reader reader(path);
  const auto bytes = std::make_unique_for_overwrite<char[]>(piece);
  size_t total = 0;
  for (size_t n; (n = reader.get(bytes.get(), piece)) != 0; total += n) {
    benchmark::DoNotOptimize(*bytes.get());
  }
  return total;
}

// The whole file in one piece of memory.

static size_t collect_ours(const char* path) {
  InstreamPathImpl file(path);
  Buffer content(false, file.stream());
  return content.length();
}

// The floor.
static size_t collect_bare(const char* path) {
  BareReader reader(path);
  const size_t size = std::filesystem::file_size(path);
  const auto content = std::make_unique_for_overwrite<char[]>(size);
  size_t total = 0;
  for (size_t n; (n = reader.get(content.get() + total, size - total)) != 0; total += n) {
  }
  benchmark::DoNotOptimize(content.get());
  return total;
}

static size_t collect_standard(const char* path) {
  std::ifstream file(path, std::ios::binary);
  const std::string content((std::istreambuf_iterator<char>(file)), {});
  return content.size();
}

static size_t collect_through_stream(const char* path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return std::move(content).str().size();
}

template <typename Run>
static void add(const std::string& name, size_t bytes, Run run) {
  const auto loop = [=](benchmark::State& state) {
    large_file();  // is there before the clock runs
    for (auto _ : state) {
      if (run() != bytes) {
        state.SkipWithError("bytes are missing");
      }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
  };
  benchmark::RegisterBenchmark(name.c_str(), loop)->UseRealTime()->Unit(benchmark::kMicrosecond);
}

template <typename Writer>
static void add_writer(const std::string& contender) {
  static const TemporaryFile target(0);
  const struct {
    const char* name;
    std::vector<size_t> pieces;
  } kCases[] = {{"Outstream, writes of 8 bytes/", {8}},
                {"Outstream, writes of 64 bytes/", {64}},
                {"Outstream, writes of 1 to 900 bytes/", {1, 8, 3, 60, 24, 900, 16, 12}}};
  for (const auto& each : kCases) {
    add(each.name + contender, kWritten, [pieces = each.pieces] {
      write_file<Writer>(target.name.c_str(), pieces);
      return std::filesystem::file_size(target.name);
    });
  }
}

template <typename Reader>
static void add_reader(const std::string& contender) {
  const struct {
    const char* name;
    size_t piece;
  } kCases[] = {{"Instream, 100 MiB by 64 bytes/", 64},
                {"Instream, 100 MiB by 4 KiB/", 4096},
                {"Instream, 100 MiB by 64 KiB/", 65536}};
  for (const auto& each : kCases) {
    add(each.name + contender, kFileSize,
        [piece = each.piece] { return read_file<Reader>(large_file(), piece); });
  }
}

[[maybe_unused]] static const bool added = [] {
  add_writer<OurWriter>("runenv");
  add_writer<CWriter<0>>("fwrite");
  add_writer<CWriter<OutstreamCache::kStageSize>>("fwrite, 1 MiB buffer");
  add_writer<UnlockedWriter>("fwrite_unlocked");
  add_writer<StandardWriter>("std::ofstream");
  add_reader<OurReader>("runenv");
  add_reader<CReader<0>>("fread");
  add_reader<CReader<65536>>("fread, 64 KiB buffer");
  add_reader<StandardReader>("std::ifstream");
  add_reader<BareReader>("read");
  add("Instream, 100 MiB collected/runenv", kFileSize, [] { return collect_ours(large_file()); });
  add("Instream, 100 MiB collected/read", kFileSize, [] { return collect_bare(large_file()); });
  add("Instream, 100 MiB collected/std::istreambuf_iterator", kFileSize,
      [] { return collect_standard(large_file()); });
  add("Instream, 100 MiB collected/std::ostringstream", kFileSize,
      [] { return collect_through_stream(large_file()); });
  return true;
}();
