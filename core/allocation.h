// Internal: allocation on the C heap for code that cannot handle a failure. When memory is
// exhausted, each function prints "Out of memory!" to standard error and aborts the process. The
// caller owns the block and releases it with free(). A block of 0 bytes may be null.
#pragma once

#include <cstddef>

namespace runenv {

// Returns a block of `bytes` uninitialised bytes.
void* allocate(size_t bytes);

// Returns a block of `bytes` zero bytes. The kernel zeroes each page of a large block when the page
// is first touched.
void* allocate_zeroed(size_t bytes);

// Resizes `block`, which may be null, to `bytes` and keeps the content that fits.
void* reallocate(void* block, size_t bytes);

// The same for `count` elements of `size` bytes. An overflow of the product counts as exhaustion.
void* reallocate_array(void* block, size_t count, size_t size);

}  // namespace runenv
