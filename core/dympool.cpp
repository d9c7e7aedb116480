#include "core/dympool.h"

#include <cstdlib>

#include "core/allocation.h"

static unsigned long long chain_length(const void* slot) {
  unsigned long long length = 0;
  for (; slot != nullptr; slot = dympool_get_link(slot)) {
    ++length;
  }
  return length;
}

// Slot 0 links to the previous page. The other slots are put on the free list, the one with the
// highest address at its head.
void* dympool_grow(dympool_t* pool) {
  if (pool->element_size < sizeof(void*) || pool->per_page < 2) {
    return nullptr;
  }
  char* const page =
      static_cast<char*>(runenv::reallocate_array(nullptr, pool->per_page, pool->element_size));
  dympool_set_link(page, pool->pages);
  pool->pages = page;
  for (unsigned long long i = 1; i < pool->per_page; ++i) {
    dympool_free(pool, page + i * pool->element_size);
  }
  return pool->free_list;
}

void dympool_init(dympool_t* pool, unsigned long long element_size, unsigned long long per_page) {
  *pool = dympool_t{
      .pages = nullptr, .free_list = nullptr, .element_size = element_size, .per_page = per_page};
}

void dympool_destroy(dympool_t* pool) {
  while (pool->pages != nullptr) {
    void* const page = pool->pages;
    pool->pages = dympool_get_link(page);
    std::free(page);
  }
  pool->free_list = nullptr;
}

unsigned long long dympool_pages(const dympool_t* pool) {
  return chain_length(pool->pages);
}

unsigned long long dympool_overhead(const dympool_t* pool) {
  return chain_length(pool->free_list);
}
