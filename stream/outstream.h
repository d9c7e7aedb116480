// Staged output to memory, a file or an outbound socket message.
//
// A writer is an OutstreamCache, whose kind tag says which variant object holds its sink. It
// gathers bytes in a stage of 1 MiB, so that the sink sees few and large pieces. A full stage is
// handed on by the write that follows. Writers are handed around as Outstream, a one-pointer
// handle. A variant owns its writer. OutstreamMemImpl and OutstreamPathImpl own their sinks, too;
// the others borrow theirs. Variants cannot be copied or moved.
//
// Write errors of a file are not detected while writing. The file keeps them for ferror, and
// OutstreamPathImpl::finalize returns them.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "core/buffer.h"
#include "fs/path.h"

class OutstreamMemImpl;
class OutstreamFSImpl;
class OutstreamSockImpl;

// The writer. Its public members are for the variants.
class OutstreamCache final {
 public:
  // The kinds of sink.
  static constexpr uint32_t kMemory = 0;
  static constexpr uint32_t kFile = 1;
  static constexpr uint32_t kSocketMessage = 2;

  static constexpr uint64_t kStageSize = uint64_t{1024} * 1024;  // bytes

  // A writer to what `variant` stands for, which must outlive it.
  explicit OutstreamCache(OutstreamMemImpl* variant);
  explicit OutstreamCache(OutstreamFSImpl* variant);
  explicit OutstreamCache(OutstreamSockImpl* variant);
  OutstreamCache(const OutstreamCache&) = delete;
  OutstreamCache& operator=(const OutstreamCache&) = delete;

  // Flushes what is staged. A flush that throws here ends the process.
  ~OutstreamCache();

  // Stages `n` bytes.
  void write(const char* bytes, unsigned long long n) {
    if (n == 0 || n > kStageSize - staged) {
      write_pieces(bytes, n);
      return;
    }
    std::memcpy(stage + staged, bytes, n);
    staged += n;
  }

  // Hands the staged bytes, if any, to the sink. An unknown kind drops them.
  void flush();

  uint32_t kind;        // one of the constants
  void* sink;           // the variant object
  char* stage;          // malloc'ed, 1 MiB
  uint64_t staged = 0;  // bytes in it

 private:
  OutstreamCache(uint32_t variant_kind, void* variant);
  void write_pieces(const char* bytes, unsigned long long n);
};

// A writer into a Buffer of its own.
class OutstreamMemImpl final {
 public:
  // `initial_capacity` is the buffer's, in bytes.
  explicit OutstreamMemImpl(unsigned long long initial_capacity);

  // The writer, which this object owns.
  OutstreamCache* stream() { return &cache; }

  // Delivers what is staged, then one NUL byte, counted in the size, when `terminate` is true.
  void finalize(bool terminate);

  Buffer buffer;         // what has been delivered
  OutstreamCache cache;  // the writer
};

// A writer into an open file, which it borrows.
class OutstreamFSImpl {
 public:
  // Writes to the file from where it stands.
  explicit OutstreamFSImpl(FILE* open_file);

  // The writer, which this object owns.
  OutstreamCache* stream() { return &cache; }

  // Delivers what is staged; the file stays open.
  void finalize();

  FILE* file;            // the sink
  OutstreamCache cache;  // the writer
};

// A writer into the file at a path. The base is private because a finalize through it would leave
// the file open.
class OutstreamPathImpl final : private OutstreamFSImpl {
 public:
  // As in OutstreamFSImpl.
  using OutstreamFSImpl::cache, OutstreamFSImpl::file, OutstreamFSImpl::stream;

  // Creates or empties the file, with `create_parents` after the directories above it. Throws Error
  // when the file cannot be opened.
  OutstreamPathImpl(const fs::path_t& path, bool create_parents);

  // Delivers what is staged and closes the file. Returns 0, or EOF when not all that was ever
  // written has reached the file. A second call changes nothing and returns the same. `file` is
  // null then, and what is written is dropped. A writer that is never finalised leaves its file
  // open.
  [[nodiscard]] int finalize();

 private:
  int result = 0;  // of finalize
};

// The handle of a writer; copying it copies the handle, not the stream.
class Outstream {
 public:
  // The handle of `writer`, which must outlive it.
  Outstream(OutstreamCache* writer) : cache(writer) {}

  // Stage a C string without its NUL, and `n` bytes.
  void write(const char* text);
  void write_len(const char* bytes, unsigned long n) { cache->write(bytes, n); }

  // The writer.
  OutstreamCache* cstream() { return cache; }

 private:
  OutstreamCache* cache;
};

// The same writes for C callers.
extern "C" void outstream_api_write(OutstreamCache* cache, const char* text);
extern "C" void outstream_api_write_len(OutstreamCache* cache, const char* bytes,
                                        unsigned long long n);
