// The C heap for code that has no answer to exhaustion: each function returns a usable block or
// ends the process with a message. Release blocks with free().
#pragma once

#include <cstddef>

namespace runenv {

// A block of `bytes` uninitialised bytes.
void* allocate(size_t bytes);

// A block of `bytes` zero bytes. A large block comes straight from the kernel and is not touched.
void* allocate_zeroed(size_t bytes);

// `block` (null: none yet) resized to `bytes`, its content kept as far as it fits.
void* reallocate(void* block, size_t bytes);

// The same for `count` elements of `size` bytes; a product that does not fit counts as exhaustion.
void* reallocate_array(void* block, size_t count, size_t size);

}  // namespace runenv
