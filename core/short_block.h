/* memset and memcpy for blocks that are mostly short, where calling them costs more than their
 * work: texts, numbers, the elements of pools and arrays. From 4 to 64 bytes, both ends of the
 * block are done in pieces of a size that the compiler knows; they overlap in the middle. */
#ifndef RUNENV_CORE_SHORT_BLOCK_H
#define RUNENV_CORE_SHORT_BLOCK_H

#include <string.h>

/* Zeroes `size` bytes at `block` and returns it. */
static inline void* runenv_short_block_clear(void* block, unsigned long long size) {
  char* const start = (char*)block;
  char* end;
  if (size == 0) {
    return block; /* which may be null */
  }
  end = start + size;
  if (size < 4 || size > 64) {
    memset(block, 0, size);
  } else if (size >= 32) {
    memset(start, 0, 32);
    memset(end - 32, 0, 32);
  } else if (size >= 16) {
    memset(start, 0, 16);
    memset(end - 16, 0, 16);
  } else if (size >= 8) {
    memset(start, 0, 8);
    memset(end - 8, 0, 8);
  } else {
    memset(start, 0, 4);
    memset(end - 4, 0, 4);
  }
  return block;
}

/* Copies `size` bytes between blocks that do not overlap. */
static inline void runenv_short_block_copy(void* destination, const void* source,
                                           unsigned long long size) {
  char* const to = (char*)destination;
  const char* const from = (const char*)source;
  if (size < 4 || size > 64) {
    memcpy(to, from, size);
  } else if (size >= 32) {
    memcpy(to, from, 32);
    memcpy(to + size - 32, from + size - 32, 32);
  } else if (size >= 16) {
    memcpy(to, from, 16);
    memcpy(to + size - 16, from + size - 16, 16);
  } else if (size >= 8) {
    memcpy(to, from, 8);
    memcpy(to + size - 8, from + size - 8, 8);
  } else {
    memcpy(to, from, 4);
    memcpy(to + size - 4, from + size - 4, 4);
  }
}

#endif
