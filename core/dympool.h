/* A pool of fixed-size elements with a free list, allocated page by page. Every element handed out
 * is zero-filled. Sizes are bytes. A failed allocation ends the process. */
#ifndef RUNENV_CORE_DYMPOOL_H
#define RUNENV_CORE_DYMPOOL_H

#include <string.h>

#include "core/clear.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct dympool_t {
  void* pages;     /* the most recent page; its first word points to the page before it */
  void* free_list; /* the first free element; its first word points to the next */
  unsigned long long element_size;
  unsigned long long per_page;
} dympool_t;

/* Makes an empty pool. `element_size` is at least 8, since a free element holds a link, and
 * `per_page` at least 2, since the first slot of a page holds the link to the page before. */
void dympool_init(dympool_t* pool, unsigned long long element_size, unsigned long long per_page);

/* For the functions below alone: the link in a slot, which is unaligned where the element size is
 * no multiple of 8; and putting a further page on the free list. dympool_grow returns the new head
 * of the list, or null for an element_size or per_page below its minimum. */
static inline void* dympool_get_link(const void* slot) {
  void* link;
  memcpy(&link, slot, sizeof link);
  return link;
}
static inline void dympool_set_link(void* slot, void* link) {
  memcpy(slot, &link, sizeof link);
}
void* dympool_grow(dympool_t* pool);

/* An element, zero-filled; null when the pool's element_size or per_page is below its minimum. */
static inline void* dympool_alloc(dympool_t* pool) {
  void* const element = pool->free_list ? pool->free_list : dympool_grow(pool);
  if (element) {
    pool->free_list = dympool_get_link(element);
    runenv_clear(element, pool->element_size);
  }
  return element;
}

/* Gives an element back for reuse and returns the previous head of the free list. */
static inline void* dympool_free(dympool_t* pool, void* element) {
  void* const previous = pool->free_list;
  dympool_set_link(element, previous);
  pool->free_list = element;
  return previous;
}

/* Frees every page, and with them every element. The pool is empty then and may be used again. */
void dympool_destroy(dympool_t* pool);

/* The number of pages. */
unsigned long long dympool_pages(const dympool_t* pool);

/* The number of elements on the free list. */
unsigned long long dympool_overhead(const dympool_t* pool);

#ifdef __cplusplus
}
#endif

#endif
