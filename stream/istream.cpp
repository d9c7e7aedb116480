#include "stream/istream.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "core/allocation.h"
#include "core/short_block.h"

static unsigned long long memory_read_len(istream* stream, char* destination,
                                          unsigned long long count) {
  auto* memory = reinterpret_cast<istream_memory*>(stream);
  const unsigned long long n = std::min(memory->length - memory->position, count);
  if (n != 0) {
    runenv_short_block_copy(destination, memory->data + memory->position, n);
    memory->position += n;
  }
  return n;
}

// Moves from `start` by `offset`, if that stays between 0 and `length`.
static int memory_move(istream_memory* memory, unsigned long long start, long long offset) {
  const auto distance = static_cast<unsigned long long>(offset);
  const bool inside = offset < 0 ? 0 - distance <= start : distance <= memory->length - start;
  if (!inside) {
    return -1;
  }
  memory->position = start + distance;
  return 0;
}

static int memory_seek_pos(istream* stream, int origin, long long offset) {
  auto* memory = reinterpret_cast<istream_memory*>(stream);
  switch (origin) {
    case 0:
      return memory_move(memory, 0, offset);
    case 1:
      return memory_move(memory, memory->position, offset);
    case 2:
      return memory_move(memory, memory->length, offset);
    default:
      return -1;
  }
}

unsigned long long istream_read_len(istream* stream, char* destination, unsigned long long count) {
  return stream->read_len(stream, destination, count);
}

int istream_seek_pos(istream* stream, int origin, long long offset) {
  return stream->seek_pos == nullptr ? -1 : stream->seek_pos(stream, origin, offset);
}

void istream_destroy(istream* stream) {
  if (stream->destroy != nullptr) {
    stream->destroy(stream);
  }
  std::free(stream);
}

istream* istream_create_memory(const char* data, unsigned long long length) {
  auto* memory = static_cast<istream_memory*>(runenv::allocate(sizeof(istream_memory)));
  *memory = istream_memory{{memory_read_len, memory_seek_pos, nullptr}, data, length, 0};
  return &memory->functions;
}

istream* istream_create_stdin(void) {
  auto* record = static_cast<istream_file*>(runenv::allocate(sizeof(istream_file)));
  *record = istream_file{{istream_stdio_read_len, nullptr, nullptr}, stdin};
  return &record->functions;
}

unsigned long long istream_stdio_read_len(istream* stream, char* destination,
                                          unsigned long long count) {
  return std::fread(destination, 1, count, reinterpret_cast<istream_file*>(stream)->file);
}
