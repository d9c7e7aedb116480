#include "stream/outstream.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "core/allocation.h"
#include "stream/socket_stream.h"

OutstreamCache::OutstreamCache(uint32_t variant_kind, void* variant)
    : kind(variant_kind), sink(variant), stage(static_cast<char*>(runenv::allocate(kStageSize))) {}

OutstreamCache::OutstreamCache(OutstreamMemImpl* variant) : OutstreamCache(kMemory, variant) {}

OutstreamCache::OutstreamCache(OutstreamFSImpl* variant) : OutstreamCache(kFile, variant) {}

OutstreamCache::~OutstreamCache() {
  flush();
  std::free(stage);
}

void OutstreamCache::write_pieces(const char* bytes, unsigned long long n) {
  while (n != 0) {
    if (staged == kStageSize) {
      flush();
    }
    const uint64_t piece = std::min<uint64_t>(kStageSize - staged, n);
    std::memcpy(stage + staged, bytes, piece);
    staged += piece;
    bytes += piece;
    n -= piece;
  }
}

// Drops the bytes if the file is already closed.
static void write_file(FILE* file, const char* bytes, uint64_t n) {
  if (file != nullptr) {
    std::fwrite(bytes, 1, n, file);
  }
}

void OutstreamCache::flush() {
  if (staged == 0) {
    return;
  }
  switch (kind) {
    case kMemory:
      static_cast<OutstreamMemImpl*>(sink)->buffer.append(stage, staged);
      break;
    case kFile:
      write_file(static_cast<OutstreamFSImpl*>(sink)->file, stage, staged);
      break;
    case kSocketMessage:
      static_cast<OutstreamSockImpl*>(sink)->send_staged(stage, staged);
      break;
    default:
      break;
  }
  staged = 0;
}

OutstreamMemImpl::OutstreamMemImpl(unsigned long long initial_capacity)
    : buffer(initial_capacity), cache(this) {}

void OutstreamMemImpl::finalize(bool terminate) {
  cache.flush();
  if (terminate) {
    buffer.append("", 1);
  }
}

OutstreamFSImpl::OutstreamFSImpl(FILE* open_file) : file(open_file), cache(this) {}

void OutstreamFSImpl::finalize() {
  cache.flush();
}

OutstreamPathImpl::OutstreamPathImpl(const fs::path_t& path, bool create_parents)
    : OutstreamFSImpl(path.open_write(create_parents)) {}

int OutstreamPathImpl::finalize() {
  cache.flush();
  if (file != nullptr) {
    const bool failed = std::ferror(file) != 0;  // fclose does not report earlier failures
    const bool closed = std::fclose(file) == 0;
    file = nullptr;
    result = closed && !failed ? 0 : EOF;
  }
  return result;
}

void Outstream::write(const char* text) {
  cache->write(text, std::strlen(text));
}

extern "C" void outstream_api_write(OutstreamCache* cache, const char* text) {
  Outstream(cache).write(text);
}

extern "C" void outstream_api_write_len(OutstreamCache* cache, const char* bytes,
                                        unsigned long long n) {
  cache->write(bytes, n);
}
