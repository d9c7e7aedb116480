#include "stream/instream.h"

#include <algorithm>
#include <cstdlib>

#include "core/allocation.h"
#include "core/error.h"
#include "core/short_block.h"
#include "stream/socket_stream.h"

static constexpr size_t kBlockSize = 4096;
static constexpr size_t kReadAhead = 65536;

[[noreturn]] static void throw_unknown_kind() {
  throw Error(Error::Type::Internal, "Instream is of an unknown type\n");
}

InstreamCache::InstreamCache(InstreamMemImpl* variant)
    : kind(kMemory), source(variant), collected(0) {}

InstreamCache::InstreamCache(InstreamFSImpl* variant)
    : kind(kFile), source(variant), collected(0) {}

static long long read_memory(InstreamMemImpl* memory, char* destination, unsigned count) {
  if (memory->remaining == 0) {
    return -1;
  }
  const unsigned long long n = std::min<unsigned long long>(memory->remaining, count);
  if (n != 0) {  // a count of 0 may come with no destination
    runenv_short_block_copy(destination, memory->data, n);
    memory->data += n;
    memory->remaining -= n;
  }
  return static_cast<long long>(n);
}

// Holds a block with unread bytes; false at the end of file. A read error without an end of file
// delivers nothing and is tried again, on purpose: only the end of file ends a stream.
static bool fill_block(InstreamFSImpl* file) {
  while (file->block_remaining == 0) {
    if (std::feof(file->file)) {
      return false;
    }
    if (file->block == nullptr) {
      file->block = static_cast<char*>(runenv::allocate(kBlockSize));
    }
    file->position = file->block;
    file->block_remaining =
        static_cast<uint32_t>(std::fread(file->block, 1, kBlockSize, file->file));
  }
  return true;
}

static long long read_file(InstreamFSImpl* file, char* destination, unsigned count) {
  if (!fill_block(file)) {
    return -1;
  }
  const unsigned n = std::min(file->block_remaining, count);
  if (n != 0) {  // a count of 0 may come with no destination
    runenv_short_block_copy(destination, file->position, n);
    file->position += n;
    file->block_remaining -= n;
  }
  return n;
}

long long InstreamCache::read_block(char* destination, unsigned count) {
  switch (kind) {
    case kMemory:
      return read_memory(static_cast<InstreamMemImpl*>(source), destination, count);
    case kFile:
      return read_file(static_cast<InstreamFSImpl*>(source), destination, count);
    case kSocketMessage:
      return static_cast<InstreamSockImpl*>(source)->read_block(destination, count);
    default:
      throw_unknown_kind();
  }
}

unsigned InstreamCache::available_bytes() {
  switch (kind) {
    case kMemory:
      return static_cast<unsigned>(static_cast<InstreamMemImpl*>(source)->remaining);
    case kFile: {
      auto* file = static_cast<InstreamFSImpl*>(source);
      fill_block(file);
      return file->block_remaining;
    }
    case kSocketMessage:
      return static_cast<InstreamSockImpl*>(source)->block_remaining;
    default:
      throw_unknown_kind();
  }
}

// Moves the rest of a file to `target`: a block that makes it grow, then straight into the spare
// bytes that this has made.
static void collect_file(InstreamFSImpl* file, Buffer* target) {
  while (fill_block(file)) {
    target->append(file->position, file->block_remaining);
    file->block_remaining = 0;
    if (!std::feof(file->file)) {
      const unsigned long long spare = target->capacity - target->size;
      target->size += std::fread(target->array + target->size, 1, spare, file->file);
    }
  }
}

char* InstreamCache::read(bool terminate, Buffer* target) {
  if (target == nullptr) {
    target = &collected;
  }
  switch (kind) {
    case kMemory: {
      const auto* memory = static_cast<InstreamMemImpl*>(source);
      target->append(memory->data, memory->remaining);
      break;
    }
    case kFile:
      collect_file(static_cast<InstreamFSImpl*>(source), target);
      break;
    case kSocketMessage:
      static_cast<InstreamSockImpl*>(source)->drain_block(target);
      break;
    default:
      throw_unknown_kind();
  }
  if (terminate) {
    target->append("", 1);
  }
  return target->get_unmanaged_array();
}

InstreamMemImpl::InstreamMemImpl(const char* bytes, unsigned long long length)
    : cache(this), data(bytes), remaining(length) {}

InstreamMemImpl::InstreamMemImpl(Buffer* buffer)
    : InstreamMemImpl(buffer->get_unmanaged_array(), buffer->length()) {}

InstreamFSImpl::InstreamFSImpl(FILE* open_file) : cache(this), file(open_file) {}

InstreamFSImpl::~InstreamFSImpl() {
  std::free(block);
}

InstreamPathImpl::InstreamPathImpl(const fs::path_t& path)
    : InstreamFSImpl(path.open_read()),
      read_ahead(static_cast<char*>(runenv::allocate(kReadAhead))) {
  std::setvbuf(file, read_ahead, _IOFBF, kReadAhead);
}

InstreamPathImpl::~InstreamPathImpl() {
  std::fclose(file);
  std::free(read_ahead);
}

// Reads as many whole blocks of a file as `count` holds right into `destination`; 0 when a block
// has unread bytes, at the end of file, and for a short read. Block by block leads to the same
// position.
static size_t read_whole_blocks(InstreamCache* cache, char* destination, unsigned count) {
  if (cache->kind != InstreamCache::kFile || count < kBlockSize) {
    return 0;
  }
  const auto* file = static_cast<InstreamFSImpl*>(cache->source);
  if (file->block_remaining != 0 || std::feof(file->file)) {
    return 0;
  }
  return std::fread(destination, 1, count - count % kBlockSize, file->file);
}

bool Instream::read_len(char* destination, unsigned count) {
  while (count != 0) {
    auto n = static_cast<long long>(read_whole_blocks(cache, destination, count));
    if (n == 0) {
      n = cache->read_block(destination, count);
    }
    if (n < 1) {
      return false;
    }
    destination += n;
    count -= static_cast<unsigned>(n);
  }
  return true;
}

extern "C" long long instream_api_read_len(InstreamCache* cache, char* destination,
                                           unsigned long long count) {
  return std::max(0LL, cache->read_block(destination, static_cast<unsigned>(count)));
}

Buffer::Buffer(bool terminate, Instream stream) : Buffer(0) {
  stream.read(terminate, this);
}
