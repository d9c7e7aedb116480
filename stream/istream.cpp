#include "stream/istream.h"

#include <cstdio>
#include <cstdlib>

#include "core/allocation.h"
#include "fs/file_interface.h"
#include "stream/block.h"

static_assert(sizeof(istream_file) == 32, "C callers rely on four 64-bit words");
static_assert(SEEK_SET == 0 && SEEK_CUR == 1 && SEEK_END == 2, "C callers give the numbers");

static unsigned long long memory_read_len(istream* stream, char* destination,
                                          unsigned long long count) {
  auto* memory = reinterpret_cast<istream_memory*>(stream);
  const char* unread = memory->data + memory->position;
  unsigned long long remaining = memory->length - memory->position;
  const unsigned long long n = runenv::take(&unread, &remaining, destination, count);
  memory->position += n;
  return n;
}

// Moves to `start` + `offset` if that is between 0 and `length`. Otherwise returns -1.
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
    case SEEK_SET:
      return memory_move(memory, 0, offset);
    case SEEK_CUR:
      return memory_move(memory, memory->position, offset);
    case SEEK_END:
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
  *memory = istream_memory{
      .functions = {.read_len = memory_read_len, .seek_pos = memory_seek_pos, .destroy = nullptr},
      .data = data,
      .length = length,
      .position = 0};
  return &memory->functions;
}

static FILE* file_of(istream* stream) {
  return reinterpret_cast<istream_file*>(stream)->file;
}

unsigned long long istream_stdio_read_len(istream* stream, char* destination,
                                          unsigned long long count) {
  return std::fread(destination, 1, count, file_of(stream));
}

static int file_seek_pos(istream* stream, int origin, long long offset) {
  switch (origin) {
    case SEEK_SET:
    case SEEK_CUR:
    case SEEK_END:
      return std::fseek(file_of(stream), offset, origin);
    default:
      return static_cast<int>(offset);  // does not seek; kept on purpose
  }
}

static int file_destroy(istream* stream) {
  return std::fclose(file_of(stream));
}

static istream* create_file(const istream& functions, FILE* file) {
  auto* record = static_cast<istream_file*>(runenv::allocate(sizeof(istream_file)));
  *record = istream_file{.functions = functions, .file = file};
  return &record->functions;
}

istream* istream_create_stdin(void) {
  return create_file({.read_len = istream_stdio_read_len, .seek_pos = nullptr, .destroy = nullptr},
                     stdin);
}

// Defined here and not in fs/ because the record belongs to this folder.
istream* fs_open_read(bucket_t* path) {
  FILE* const file = std::fopen(bucket_cstring(path), "rbe");  // "e": no child inherits it
  if (file == nullptr) {
    return nullptr;
  }
  return create_file(
      {.read_len = istream_stdio_read_len, .seek_pos = file_seek_pos, .destroy = file_destroy},
      file);
}
