// Internal: the C heap for code that cannot go on without memory. Each function returns a usable
// block or aborts the process with "Out of memory!" on standard error. Release blocks with free().
#pragma once

#include <cstddef>

namespace runenv {

// A block of `bytes` uninitialised bytes.
void* allocate(size_t bytes);

// A block of `bytes` zero bytes. The kernel zeroes a large block page by page, when it is touched.
void* allocate_zeroed(size_t bytes);

// `block` (null: none yet) resized to `bytes`, its content kept as far as it fits.
void* reallocate(void* block, size_t bytes);

// The same for `count` elements of `size` bytes. A product that overflows counts as exhaustion.
void* reallocate_array(void* block, size_t count, size_t size);

}  // namespace runenv
