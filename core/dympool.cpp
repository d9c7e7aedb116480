#include "core/dympool.h"

#include <cstdlib>
#include <cstring>

#include "core/allocation.h"

// Links go through memcpy: an element size that is no multiple of 8 leaves slots unaligned.
static void* get_link(const void* slot) {
  void* link;
  std::memcpy(&link, slot, sizeof link);
  return link;
}

static void set_link(void* slot, void* link) {
  std::memcpy(slot, &link, sizeof link);
}

static unsigned long long chain_length(const void* slot) {
  unsigned long long length = 0;
  for (; slot != nullptr; slot = get_link(slot)) {
    ++length;
  }
  return length;
}

// Slot 0 links the pages; the others go on the free list with the highest address first.
static void add_page(dympool_t* pool) {
  char* const page =
      static_cast<char*>(reallocate_array(nullptr, pool->per_page, pool->element_size));
  set_link(page, pool->pages);
  pool->pages = page;
  for (unsigned long long i = 1; i < pool->per_page; ++i) {
    dympool_free(pool, page + i * pool->element_size);
  }
}

void dympool_init(dympool_t* pool, unsigned long long element_size, unsigned long long per_page) {
  *pool = dympool_t{nullptr, nullptr, element_size, per_page};
}

void* dympool_alloc(dympool_t* pool) {
  if (pool->free_list == nullptr) {
    if (pool->element_size < sizeof(void*) || pool->per_page < 2) {
      return nullptr;
    }
    add_page(pool);
  }
  void* const element = pool->free_list;
  pool->free_list = get_link(element);
  return std::memset(element, 0, pool->element_size);
}

void* dympool_free(dympool_t* pool, void* element) {
  void* const previous = pool->free_list;
  set_link(element, previous);
  pool->free_list = element;
  return previous;
}

void dympool_destroy(dympool_t* pool) {
  while (pool->pages != nullptr) {
    void* const page = pool->pages;
    pool->pages = get_link(page);
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
