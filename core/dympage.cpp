#include "core/dympage.h"

#include <algorithm>
#include <cstdlib>

#include "core/allocation.h"

static_assert(sizeof(dympage_page_t) == 24, "the page header is three 64-bit words");

static constexpr unsigned long long kDefaultPageSize = 10ULL * 1024 * 1024;

static unsigned long long padding_of(const dympage_page_t* page, unsigned long long alignment) {
  return -reinterpret_cast<uintptr_t>(page->next_free) & (alignment - 1);
}

using Allocate = void* (*)(size_t bytes);

static dympage_page_t* make_page(dympage_page_t* previous, unsigned long long payload,
                                 Allocate allocate_page) {
  // A size that does not fit the address space is one that cannot be had, not a small one.
  const bool fits = payload <= PTRDIFF_MAX - sizeof(dympage_page_t);
  auto* page = static_cast<dympage_page_t*>(
      allocate_page(fits ? sizeof(dympage_page_t) + payload : SIZE_MAX));
  page->previous = previous;
  page->next_free = reinterpret_cast<char*>(page + 1);
  page->free_bytes = payload;
  return page;
}

// A new page, made the current one, that has room for the block in any case.
static void add_page(dympage_t* handle, unsigned long long size, unsigned long long alignment,
                     Allocate allocate_page) {
  const unsigned long long grow = std::max(handle->page_size, size);
  dympage_page_t* page = make_page(handle->page, grow, allocate_page);
  if (padding_of(page, alignment) + size > grow) {
    // The padding leaves no room for the block; one alignment more always does.
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
  // The padding that fits the old page is consumed all the same.
  dympage_page_t* const old = handle->page;
  const unsigned long long padding = padding_of(old, alignment);
  if (padding <= old->free_bytes) {
    old->next_free += padding;
    old->free_bytes -= padding;
  }
  if (size <= handle->page_size) {
    add_page(handle, size, alignment, runenv::allocate);
    return dympage_alloc(handle, size, alignment);
  }
  // A large block comes zeroed from the kernel, page by page when it is touched, if ever.
  add_page(handle, size, alignment, runenv::allocate_zeroed);
  dympage_page_t* const page = handle->page;
  char* const block = page->next_free + padding_of(page, alignment);
  page->free_bytes -= static_cast<unsigned long long>(block + size - page->next_free);
  page->next_free = block + size;
  return block;
}

void dympage_destroy(dympage_t* handle) {
  dympage_page_t* page = handle->page;
  handle->page = nullptr;  // now, as the handle may lie in a page
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
