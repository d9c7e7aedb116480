// Buffered output to memory, a file or an outbound socket message.
//
// A writer is an OutstreamCache. Its `kind` says which variant object holds its sink. It collects
// bytes in a stage of 1 MiB, so that the sink gets few large pieces. The first write after the
// stage is full passes it to the sink. Pass writers as Outstream, a handle of one pointer. A
// variant owns its writer. OutstreamMemImpl and OutstreamPathImpl also own their sinks; the others
// borrow theirs. Variants cannot be copied or moved.
//
// Writing does not report write errors of a file. They set the error indicator of the file (see
// ferror) and make OutstreamPathImpl::finalize return EOF.
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

  // Makes a writer to the sink of `variant`, which must outlive the writer.
  explicit OutstreamCache(OutstreamMemImpl* variant);
  explicit OutstreamCache(OutstreamFSImpl* variant);
  explicit OutstreamCache(OutstreamSockImpl* variant);
  OutstreamCache(const OutstreamCache&) = delete;
  OutstreamCache& operator=(const OutstreamCache&) = delete;

  // Flushes the stage. An exception of this flush ends the process.
  ~OutstreamCache();

  // Copies `n` bytes into the stage. Flushes a full stage before it stores more bytes.
  void write(const char* bytes, unsigned long long n) {
    if (n == 0 || n > kStageSize - staged) {
      write_pieces(bytes, n);
      return;
    }
    std::memcpy(stage + staged, bytes, n);
    staged += n;
  }

  // Passes the staged bytes, if any, to the sink. Drops them if the kind is unknown.
  void flush();

  uint32_t kind;        // one of the constants
  void* sink;           // the variant object
  char* stage;          // malloc'ed, 1 MiB
  uint64_t staged = 0;  // number of bytes in the stage

 private:
  OutstreamCache(uint32_t variant_kind, void* variant);
  void write_pieces(const char* bytes, unsigned long long n);
};

// A writer to its own Buffer.
class OutstreamMemImpl final {
 public:
  // `initial_capacity` is the capacity of the buffer in bytes.
  explicit OutstreamMemImpl(unsigned long long initial_capacity);

  // The writer, which this object owns.
  OutstreamCache* stream() { return &cache; }

  // Flushes the stage, then appends one NUL byte, counted in the size, if `terminate` is true.
  void finalize(bool terminate);

  Buffer buffer;         // the flushed bytes
  OutstreamCache cache;  // the writer
};

// A writer to an open file, which it borrows.
class OutstreamFSImpl {
 public:
  // Writes from the current position of the file.
  explicit OutstreamFSImpl(FILE* open_file);

  // The writer, which this object owns.
  OutstreamCache* stream() { return &cache; }

  // Flushes the stage. The file stays open.
  void finalize();

  FILE* file;            // the sink
  OutstreamCache cache;  // the writer
};

// A writer to the file at a path. The base class is private because a finalize through it would
// leave the file open.
class OutstreamPathImpl final : private OutstreamFSImpl {
 public:
  // As in OutstreamFSImpl.
  using OutstreamFSImpl::cache, OutstreamFSImpl::file, OutstreamFSImpl::stream;

  // Creates or empties the file. With `create_parents`, creates missing parent directories first.
  // Throws Error if the file cannot be opened.
  OutstreamPathImpl(const fs::path_t& path, bool create_parents);

  // Flushes the stage and closes the file. Returns 0, or EOF if this or an earlier write to the
  // file failed. Afterwards `file` is null, further bytes are dropped, and further calls return the
  // same result. Without a call of finalize the file stays open.
  [[nodiscard]] int finalize();

 private:
  int result = 0;  // of finalize
};

// A handle of a writer. Copying it does not copy the stream.
class Outstream {
 public:
  // Makes a handle of `writer`, which must outlive it.
  Outstream(OutstreamCache* writer) : cache(writer) {}

  // Write a C string without its NUL, and `n` bytes.
  void write(const char* text);
  void write_len(const char* bytes, unsigned long n) { cache->write(bytes, n); }

  // The writer.
  OutstreamCache* cstream() { return cache; }

 private:
  OutstreamCache* cache;
};

// The same for C callers.
extern "C" void outstream_api_write(OutstreamCache* cache, const char* text);
extern "C" void outstream_api_write_len(OutstreamCache* cache, const char* bytes,
                                        unsigned long long n);
