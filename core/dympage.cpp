#include "core/dympage.h"

#include <algorithm>
#include <cstdlib>

#include "core/allocation.h"

static_assert(sizeof(dympage_page_t) == 24, "the page header is three 64-bit words");

static constexpr unsigned long long kDefaultPageSize = 10ULL * 1024 * 1024;

using Allocate = void* (*)(size_t bytes);

static dympage_page_t* make_page(dympage_page_t* previous, unsigned long long payload,
                                 Allocate allocate_page) {
  // If the sum would overflow, request as much as an object can have, which always fails.
  const bool fits = payload <= PTRDIFF_MAX - sizeof(dympage_page_t);
  auto* page = static_cast<dympage_page_t*>(
      allocate_page(fits ? sizeof(dympage_page_t) + payload : PTRDIFF_MAX));
  page->previous = previous;
  page->next_free = reinterpret_cast<char*>(page + 1);
  page->free_bytes = payload;
  return page;
}

// Makes a new page the current one, with room for the block and its padding.
static void add_page(dympage_t* handle, unsigned long long size, unsigned long long alignment,
                     Allocate allocate_page) {
  const unsigned long long grow = std::max(handle->page_size, size);
  dympage_page_t* page = make_page(handle->page, grow, allocate_page);
  if (dympage_padding(page, alignment) + size > grow) {
    // The padding leaves no room for the block. `alignment` more bytes are always enough.
    std::free(page);
    page = make_page(handle->page, grow + alignment, allocate_page);
  }
  handle->page = page;
}

dympage_t* dympage_create(void) {
  return dympage_create2(kDefaultPageSize);
}

dympage_t* dympage_create2(unsigned long long page_size) {
  dympage_t first;
  dympage_init2(&first, page_size);
  auto* handle = static_cast<dympage_t*>(dympage_alloc(&first, sizeof(dympage_t), 8));
  *handle = first;
  return handle;
}

void dympage_init(dympage_t* handle) {
  dympage_init2(handle, kDefaultPageSize);
}

void dympage_init2(dympage_t* handle, unsigned long long page_size) {
  handle->page = make_page(nullptr, page_size, runenv::allocate);
  handle->page_size = page_size;
}

void* dympage_alloc_in_new_page(dympage_t* handle, unsigned long long size,
                                unsigned long long alignment) {
  // Padding that fits in the old page is used up, although the block does not fit.
  dympage_page_t* const old = handle->page;
  const unsigned long long padding = dympage_padding(old, alignment);
  if (padding <= old->free_bytes) {
    dympage_carve(old, padding, 0);
  }
  if (size <= handle->page_size) {
    add_page(handle, size, alignment, runenv::allocate);
    return dympage_alloc(handle, size, alignment);
  }
  // For a large block, the kernel zeroes each page when it is first touched.
  add_page(handle, size, alignment, runenv::allocate_zeroed);
  return dympage_carve(handle->page, dympage_padding(handle->page, alignment), size);
}

void dympage_destroy(dympage_t* handle) {
  dympage_page_t* page = handle->page;
  handle->page = nullptr;  // first, because the handle may lie in a page
  while (page != nullptr) {
    dympage_page_t* const previous = page->previous;
    std::free(page);
    page = previous;
  }
}

unsigned long long dympage_usage(const dympage_t* handle) {
  unsigned long long bytes = 0;
  for (const dympage_page_t* page = handle->page; page != nullptr; page = page->previous) {
    bytes += static_cast<unsigned long long>(page->next_free - reinterpret_cast<const char*>(page));
    bytes += page->free_bytes;
  }
  return bytes;
}

unsigned long long dympage_overhead(const dympage_t* handle) {
  unsigned long long bytes = 0;
  for (const dympage_page_t* page = handle->page; page != nullptr; page = page->previous) {
    bytes += page->free_bytes;
  }
  return bytes;
}
