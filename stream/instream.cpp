#include "stream/instream.h"

#include <algorithm>
#include <cstdlib>

#include "core/allocation.h"
#include "core/error.h"
#include "stream/block.h"
#include "stream/socket_stream.h"

static constexpr size_t kBlockSize = 4096;
static constexpr size_t kReadAhead = 65536;

InstreamCache::InstreamCache(uint32_t variant_kind, void* variant)
    : kind(variant_kind), source(variant), collected(0) {}

InstreamCache::InstreamCache(InstreamMemImpl* variant) : InstreamCache(kMemory, variant) {}

InstreamCache::InstreamCache(InstreamFSImpl* variant) : InstreamCache(kFile, variant) {}

// Calls `operation` with the variant that the kind tag names.
template <typename Operation>
static auto with_variant(InstreamCache* cache, const Operation& operation) {
  switch (cache->kind) {
    case InstreamCache::kMemory:
      return operation(static_cast<InstreamMemImpl*>(cache->source));
    case InstreamCache::kFile:
      return operation(static_cast<InstreamFSImpl*>(cache->source));
    case InstreamCache::kSocketMessage:
      return operation(static_cast<InstreamSockImpl*>(cache->source));
    default:
      throw Error(Error::Type::Internal, "Instream is of an unknown type\n");
  }
}

long long InstreamCache::read_block(char* destination, unsigned count) {
  return with_variant(this, [=](auto* variant) { return variant->read_block(destination, count); });
}

unsigned InstreamCache::available_bytes() {
  return with_variant(this, [](auto* variant) { return variant->available_bytes(); });
}

char* InstreamCache::read(bool terminate, Buffer* target) {
  if (target == nullptr) {
    target = &collected;
  }
  with_variant(this, [target](auto* variant) { variant->collect(target); });
  if (terminate) {
    target->append("", 1);
  }
  return target->get_unmanaged_array();
}

InstreamMemImpl::InstreamMemImpl(const char* bytes, unsigned long long length)
    : cache(this), data(bytes), remaining(length) {}

InstreamMemImpl::InstreamMemImpl(Buffer* buffer)
    : InstreamMemImpl(buffer->get_unmanaged_array(), buffer->length()) {}

long long InstreamMemImpl::read_block(char* destination, unsigned count) {
  if (remaining == 0) {
    return -1;
  }
  return static_cast<long long>(runenv::take(&data, &remaining, destination, count));
}

unsigned InstreamMemImpl::available_bytes() const {
  return static_cast<unsigned>(remaining);
}

void InstreamMemImpl::collect(Buffer* target) const {
  target->append(data, remaining);
}

InstreamFSImpl::InstreamFSImpl(FILE* open_file) : cache(this), file(open_file) {}

InstreamFSImpl::~InstreamFSImpl() {
  std::free(block);
}

// Ensures that the block has unread bytes. Returns false at the end of file. Repeats a failed read,
// on purpose: only the end of file ends a stream.
bool InstreamFSImpl::fill_block() {
  while (block_remaining == 0) {
    if (std::feof(file)) {
      return false;
    }
    if (block == nullptr) {
      block = static_cast<char*>(runenv::allocate(kBlockSize));
    }
    position = block;
    block_remaining = static_cast<uint32_t>(std::fread(block, 1, kBlockSize, file));
  }
  return true;
}

long long InstreamFSImpl::read_block(char* destination, unsigned count) {
  if (!fill_block()) {
    return -1;
  }
  return runenv::take(&position, &block_remaining, destination, count);
}

unsigned InstreamFSImpl::available_bytes() {
  fill_block();
  return block_remaining;
}

// Appends a block, which makes the target grow, then reads directly into the target's spare bytes.
void InstreamFSImpl::collect(Buffer* target) {
  while (fill_block()) {
    target->append(position, block_remaining);
    block_remaining = 0;
    if (!std::feof(file)) {
      const unsigned long long spare = target->capacity - target->size;
      target->size += std::fread(target->array + target->size, 1, spare, file);
    }
  }
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

// Reads as many whole blocks of a file as fit in `count` directly into `destination`, and returns
// the number of bytes. The file position is then the same as after reading block by block. Returns
// 0 if the current block has unread bytes, at the end of file, for a `count` less than a block, and
// for other sources.
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
