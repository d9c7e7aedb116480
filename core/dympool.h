/* A pool of fixed-size elements with a free list, allocated page by page. Every allocated element
 * is zero-filled. Sizes are in bytes. A failed allocation ends the process. */
#ifndef RUNENV_CORE_DYMPOOL_H
#define RUNENV_CORE_DYMPOOL_H

#include <string.h>

#include "core/clear.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct dympool_t {
  void* pages;     /* the most recent page; its first word points to the previous page */
  void* free_list; /* the first free element; its first word points to the next */
  unsigned long long element_size;
  unsigned long long per_page;
} dympool_t;

/* Initialises an empty pool. `element_size` must be at least 8: a free element holds a link.
 * `per_page` must be at least 2: the first slot of a page holds the link to the previous page. */
void dympool_init(dympool_t* pool, unsigned long long element_size, unsigned long long per_page);

/* Internal to the functions below. dympool_get_link and dympool_set_link read and write the link in
 * a slot, which may be unaligned. dympool_grow adds a page to the free list and returns the new
 * head of the list, or null if element_size or per_page is below its minimum. */
static inline void* dympool_get_link(const void* slot) {
  void* link;
  memcpy(&link, slot, sizeof link);
  return link;
}
static inline void dympool_set_link(void* slot, void* link) {
  memcpy(slot, &link, sizeof link);
}
void* dympool_grow(dympool_t* pool);

/* Returns a zero-filled element, or null if element_size or per_page is below its minimum. */
static inline void* dympool_alloc(dympool_t* pool) {
  void* const element = pool->free_list ? pool->free_list : dympool_grow(pool);
  if (element) {
    pool->free_list = dympool_get_link(element);
    runenv_clear(element, pool->element_size);
  }
  return element;
}

/* Puts an element on the free list. Returns the previous head of the list. */
static inline void* dympool_free(dympool_t* pool, void* element) {
  void* const previous = pool->free_list;
  dympool_set_link(element, previous);
  pool->free_list = element;
  return previous;
}

/* Frees all pages with all elements. The pool is then empty and can be used again. */
void dympool_destroy(dympool_t* pool);

/* Returns the number of pages. */
unsigned long long dympool_pages(const dympool_t* pool);

/* Returns the number of elements on the free list. */
unsigned long long dympool_overhead(const dympool_t* pool);

#ifdef __cplusplus
}
#endif

#endif
