/* Zeroing the blocks, mostly small, that pools, pages and arrays hand out: of 4 to 64 bytes it is
 * up to twice as fast as a call of memset. */
#ifndef RUNENV_CORE_CLEAR_H
#define RUNENV_CORE_CLEAR_H

#include <string.h>

#include "core/cast.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Zeroes the first and the last `piece` bytes, which may overlap, of a block of `size` bytes. Where
 * `piece` is a constant, compilers make single instructions of this. */
static inline void runenv_clear_ends(void* block, unsigned long long size,
                                     unsigned long long piece) {
  memset(block, 0, piece);
  memset(RUNENV_CAST(char*, block) + (size - piece), 0, piece);
}

/* Zeroes `size` bytes at `block` and returns it. An empty block may be null. */
static inline void* runenv_clear(void* block, unsigned long long size) {
  if (size > 64) {
    memset(block, 0, size);
  } else if (size >= 32) {
    runenv_clear_ends(block, size, 32);
  } else if (size >= 16) {
    runenv_clear_ends(block, size, 16);
  } else if (size >= 8) {
    runenv_clear_ends(block, size, 8);
  } else if (size >= 4) {
    runenv_clear_ends(block, size, 4);
  } else if (size != 0) {
    memset(block, 0, size);
  }
  return block;
}

#ifdef __cplusplus
}
#endif

#endif
