/* A page (arena) allocator: blocks are carved from large pages and never freed one by one;
 * destroying the allocator frees every page. Every block is zero-filled.
 *
 * Sizes are bytes. A failed allocation ends the process. */
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

/* Creates an allocator, whose handle lives in its own first page. `page_size` is the payload of a
 * page, 10 MiB by default. Memory that no block uses is not touched. */
dympage_t* dympage_create(void);
dympage_t* dympage_create2(unsigned long long page_size);

/* Make an allocator of a handle that the caller holds. */
void dympage_init(dympage_t* handle);
void dympage_init2(dympage_t* handle, unsigned long long page_size);

/* For dympage_alloc alone: the bytes from the page's first unused one to the next multiple of
 * `alignment`; a block behind `padding` bytes of a page that has room for both; a zero-filled block
 * where the current page has no room, whose rest is then never used again. */
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

/* A zero-filled block at a multiple of `alignment`, a power of two. A request larger than the page
 * size gets a page of its own. */
static inline void* dympage_alloc(dympage_t* handle, unsigned long long size,
                                  unsigned long long alignment) {
  dympage_page_t* const page = handle->page;
  const unsigned long long padding = dympage_padding(page, alignment);
  if (padding > page->free_bytes || size > page->free_bytes - padding) {
    return dympage_alloc_in_new_page(handle, size, alignment);
  }
  return runenv_clear(dympage_carve(page, padding, size), size);
}

/* Frees every page, and with them the handle that dympage_create made. A handle that the caller
 * holds must be initialised before it is used again. */
void dympage_destroy(dympage_t* handle);

/* The bytes of all pages, headers included. */
unsigned long long dympage_usage(const dympage_t* handle);

/* The bytes of all pages that are not handed out. */
unsigned long long dympage_overhead(const dympage_t* handle);

#ifdef __cplusplus
}
#endif

#endif
