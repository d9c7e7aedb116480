/* A page (arena) allocator. It takes blocks from large pages. Single blocks cannot be freed;
 * destroying the allocator frees all pages. Every block is zero-filled.
 *
 * Sizes are in bytes. A failed allocation ends the process. */
#ifndef RUNENV_CORE_DYMPAGE_H
#define RUNENV_CORE_DYMPAGE_H

#include <stdint.h>

#include "core/cast.h"
#include "core/clear.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct dympage_page_t dympage_page_t;

/* The header of a page; its payload follows. */
struct dympage_page_t {
  dympage_page_t* previous; /* the page made before this one */
  char* next_free;          /* first unused payload byte */
  unsigned long long free_bytes;
};

/* An allocator. */
typedef struct dympage_t {
  dympage_page_t* page;         /* the most recent page */
  unsigned long long page_size; /* payload of a normal page */
} dympage_t;

/* Create an allocator. The handle is stored in the allocator's first page. `page_size` is the
 * payload of a page, 10 MiB by default. Unused memory of a page is not touched. */
dympage_t* dympage_create(void);
dympage_t* dympage_create2(unsigned long long page_size);

/* Initialise an allocator whose handle is owned by the caller. */
void dympage_init(dympage_t* handle);
void dympage_init2(dympage_t* handle, unsigned long long page_size);

/* Internal to dympage_alloc. dympage_padding returns the number of bytes from the page's first
 * unused byte to the next multiple of `alignment`. dympage_carve takes a block after `padding`
 * bytes; the page must have room for both. dympage_alloc_in_new_page adds a page and returns a
 * zero-filled block from it. The rest of the previous page is never used. */
static inline unsigned long long dympage_padding(const dympage_page_t* page,
                                                 unsigned long long alignment) {
  return -RUNENV_CAST(uintptr_t, page->next_free) & (alignment - 1);
}
static inline void* dympage_carve(dympage_page_t* page, unsigned long long padding,
                                  unsigned long long size) {
  char* const block = page->next_free + padding;
  page->next_free = block + size;
  page->free_bytes -= padding + size;
  return block;
}
void* dympage_alloc_in_new_page(dympage_t* handle, unsigned long long size,
                                unsigned long long alignment);

/* Returns a zero-filled block, aligned to `alignment`, which must be a power of two. A block larger
 * than the page size gets its own page. */
static inline void* dympage_alloc(dympage_t* handle, unsigned long long size,
                                  unsigned long long alignment) {
  dympage_page_t* const page = handle->page;
  const unsigned long long padding = dympage_padding(page, alignment);
  if (padding > page->free_bytes || size > page->free_bytes - padding) {
    return dympage_alloc_in_new_page(handle, size, alignment);
  }
  return runenv_clear(dympage_carve(page, padding, size), size);
}

/* Frees all pages, including a handle from dympage_create. A handle that is owned by the caller
 * must be initialised before it is used again. */
void dympage_destroy(dympage_t* handle);

/* Returns the size of all pages, including their headers. */
unsigned long long dympage_usage(const dympage_t* handle);

/* Returns the number of free bytes in all pages. */
unsigned long long dympage_overhead(const dympage_t* handle);

#ifdef __cplusplus
}
#endif

#endif
