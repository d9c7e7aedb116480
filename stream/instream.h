// Buffered input over memory, a file or an inbound socket message.
//
// A reader is an InstreamCache. Its `kind` says which variant object holds its source. Pass readers
// as Instream, a handle of one pointer. A variant owns its reader. It borrows its source, except
// InstreamPathImpl, which owns its file. Variants cannot be copied or moved.
//
// Read errors of a file are not reported. A failed read is repeated at once for as long as it
// fails. Only the end of file ends the stream.
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

  // Makes a reader of the source of `variant`, which must outlive the reader.
  explicit InstreamCache(InstreamMemImpl* variant);
  explicit InstreamCache(InstreamFSImpl* variant);
  explicit InstreamCache(InstreamSockImpl* variant);
  InstreamCache(const InstreamCache&) = delete;
  InstreamCache& operator=(const InstreamCache&) = delete;

  // Reads up to `count` bytes, at most the rest of the current block. Returns the number of bytes,
  // or -1 at the end of data.
  long long read_block(char* destination, unsigned count);

  // Returns the number of bytes that can be read without blocking. For memory it is the number of
  // unread bytes, truncated to 32 bits. For a file it is the rest of the current block; if there is
  // none, reads the next block. For a socket message it is the rest of the current chunk.
  unsigned available_bytes();

  // Appends the rest of the stream to `target` (null: to `collected`), then one NUL byte if
  // `terminate` is true. Returns the target's unread bytes, which the target owns. Bytes in memory
  // are not consumed: they can be read again. For a socket message, the rest of the stream is only
  // the rest of the current chunk.
  char* read(bool terminate, Buffer* target);

  uint32_t kind;     // one of the constants
  void* source;      // the variant object
  Buffer collected;  // the target of read for a null target

 private:
  InstreamCache(uint32_t variant_kind, void* variant);
};

// A reader of bytes in memory, which it borrows.
class InstreamMemImpl final {
 public:
  // Reads the `length` bytes at `bytes`, which must outlive the stream and not be modified.
  InstreamMemImpl(const char* bytes, unsigned long long length);

  // Reads the unread bytes of `buffer`, which must outlive the stream and not be modified.
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
  unsigned long long remaining;  // number of unread bytes
};

// A reader of an open file, which it borrows. It reads blocks of 4096 bytes.
class InstreamFSImpl {
 public:
  // Reads from the current position of the file.
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
  uint32_t block_remaining = 0;  // number of unread bytes of the block

 private:
  bool fill_block();
};

// A reader of the file at a path, which it opens and closes. The base class is private because a
// destruction through it would leave the file open.
class InstreamPathImpl final : private InstreamFSImpl {
 public:
  // As in InstreamFSImpl.
  using InstreamFSImpl::block, InstreamFSImpl::position, InstreamFSImpl::block_remaining;
  using InstreamFSImpl::cache, InstreamFSImpl::file, InstreamFSImpl::stream;

  // Throws Error when the file cannot be opened.
  explicit InstreamPathImpl(const fs::path_t& path);
  ~InstreamPathImpl();

  char* read_ahead;  // the buffer of `file`, large enough for many blocks per system call
};

// A handle of a reader. Copying it does not copy the stream.
class Instream {
 public:
  // Makes a handle of `reader`, which must outlive it.
  Instream(InstreamCache* reader) : cache(reader) {}

  // Like InstreamCache::read and InstreamCache::available_bytes.
  char* read(bool terminate, Buffer* target) { return cache->read(terminate, target); }
  unsigned available_bytes() { return cache->available_bytes(); }

  // The reader.
  InstreamCache* cstream() { return cache; }

  // Reads exactly `count` bytes and returns true. Returns false if the stream ends first; the bytes
  // read so far are in `destination`.
  bool read_len(char* destination, unsigned count);

 private:
  InstreamCache* cache;
};

// Like read_block, but returns 0 at the end of data. `count` is truncated to 32 bits.
extern "C" long long instream_api_read_len(InstreamCache* cache, char* destination,
                                           unsigned long long count);
