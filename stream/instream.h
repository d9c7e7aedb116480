// Buffered input over memory, a file or an inbound socket message.
//
// A reader is an InstreamCache, whose kind tag says which variant object holds its source; readers
// are handed around as Instream, a one-pointer handle. A variant owns its reader. It borrows its
// source, but for InstreamPathImpl, which owns it. Variants cannot be copied or moved.
//
// Read errors of a file are not reported. A read that fails, as on a broken disk, is tried again at
// once, for as long as it fails. Only the end of file ends the stream.
#pragma once

#include <cstdint>
#include <cstdio>

#include "core/buffer.h"
#include "fs/path.h"

class InstreamMemImpl;
class InstreamFSImpl;
class InstreamSockImpl;

// The reader. Its public members are for the variants.
class InstreamCache final {
 public:
  // The kinds of source.
  static constexpr uint32_t kMemory = 0;
  static constexpr uint32_t kFile = 1;
  static constexpr uint32_t kSocketMessage = 2;

  // A reader over what `variant` stands for, which must outlive it.
  explicit InstreamCache(InstreamMemImpl* variant);
  explicit InstreamCache(InstreamFSImpl* variant);
  explicit InstreamCache(InstreamSockImpl* variant);
  InstreamCache(const InstreamCache&) = delete;
  InstreamCache& operator=(const InstreamCache&) = delete;

  // Delivers up to `count` bytes, at most what the current block holds, and returns how many; -1 at
  // the end of data.
  long long read_block(char* destination, unsigned count);

  // How many bytes can be read without waiting: what memory has left, as 32 bits, or what the
  // current block holds. A file fetches its next block first; a socket message never does.
  unsigned available_bytes();

  // Appends the rest of the stream to `target` (null: to `collected`), then one NUL byte when
  // `terminate` is true. Returns the target's unread bytes, which the target owns. This does not
  // consume memory. Of a socket message it takes only the chunk already held.
  char* read(bool terminate, Buffer* target);

  uint32_t kind;     // one of the constants
  void* source;      // the variant object
  Buffer collected;  // what read returns when it is given no target

 private:
  InstreamCache(uint32_t variant_kind, void* variant);
};

// A reader over bytes in memory, which it borrows.
class InstreamMemImpl final {
 public:
  // Reads the `length` bytes at `bytes`, which must outlive the stream and stay unchanged.
  InstreamMemImpl(const char* bytes, unsigned long long length);

  // Reads the unread part of `buffer`, which must outlive the stream and stay unchanged.
  explicit InstreamMemImpl(Buffer* buffer);

  // The reader, which this object owns.
  InstreamCache* stream() { return &cache; }

  // The part of the operations of InstreamCache that depends on the source. `collect` appends the
  // rest of the stream to `target`.
  long long read_block(char* destination, unsigned count);
  unsigned available_bytes() const;
  void collect(Buffer* target) const;

  InstreamCache cache;           // the reader
  const char* data;              // the next unread byte
  unsigned long long remaining;  // how many are unread
};

// A reader over an open file, which it borrows: it reads in blocks of 4096 bytes.
class InstreamFSImpl {
 public:
  // Reads the file from where it stands.
  explicit InstreamFSImpl(FILE* open_file);
  ~InstreamFSImpl();
  InstreamFSImpl(const InstreamFSImpl&) = delete;
  InstreamFSImpl& operator=(const InstreamFSImpl&) = delete;

  // The reader, which this object owns.
  InstreamCache* stream() { return &cache; }

  // The part of the operations of InstreamCache that depends on the source. `collect` appends the
  // rest of the stream to `target`.
  long long read_block(char* destination, unsigned count);
  unsigned available_bytes();
  void collect(Buffer* target);

  InstreamCache cache;           // the reader
  FILE* file;                    // the source
  char* block = nullptr;         // malloc'ed, null until the first read
  char* position = nullptr;      // the next unread byte of the block
  uint32_t block_remaining = 0;  // how many bytes of it are unread

 private:
  bool fill_block();
};

// A reader over the file at a path, which it opens and closes. The base is private because a
// destruction through it would leave the file open.
class InstreamPathImpl final : private InstreamFSImpl {
 public:
  // As in InstreamFSImpl.
  using InstreamFSImpl::block, InstreamFSImpl::position, InstreamFSImpl::block_remaining;
  using InstreamFSImpl::cache, InstreamFSImpl::file, InstreamFSImpl::stream;

  // Throws Error when the file cannot be opened.
  explicit InstreamPathImpl(const fs::path_t& path);
  ~InstreamPathImpl();

  char* read_ahead;  // the buffer of `file`: many blocks come with one system call
};

// The handle of a reader; copying it copies the handle, not the stream.
class Instream {
 public:
  // The handle of `reader`, which must outlive it.
  Instream(InstreamCache* reader) : cache(reader) {}

  // As InstreamCache::read and InstreamCache::available_bytes.
  char* read(bool terminate, Buffer* target) { return cache->read(terminate, target); }
  unsigned available_bytes() { return cache->available_bytes(); }

  // The reader.
  InstreamCache* cstream() { return cache; }

  // True when exactly `count` bytes were delivered. False when the stream ended first; what came so
  // far is in `destination`.
  bool read_len(char* destination, unsigned count);

 private:
  InstreamCache* cache;
};

// read_block in the form of a C read function: 0 at the end of data. `count` is taken as 32 bits.
extern "C" long long instream_api_read_len(InstreamCache* cache, char* destination,
                                           unsigned long long count);
