#include "core/dymarray.h"

#include <algorithm>
#include <cstdlib>

#include "core/allocation.h"

static_assert(sizeof(dymarray_t) == 40, "C callers rely on five 64-bit words");

static constexpr unsigned long long kDefaultStep = 64;

unsigned long long dymarray_init(dymarray_t* array, unsigned long long element_size,
                                 unsigned long long step) {
  *array = dymarray_t{.element_size = element_size,
                      .step = step != 0 ? step : kDefaultStep,
                      .data = nullptr,
                      .capacity = 0,
                      .count = 0};
  return array->step;
}

void dymarray_destroy(dymarray_t* array) {
  std::free(array->data);
  dymarray_init(array, array->element_size, array->step);
}

void dymarray_grow(dymarray_t* array) {
  array->capacity += array->step;
  array->data = static_cast<char*>(
      runenv::reallocate_array(array->data, array->capacity, array->element_size));
}

void* dymarray_last(dymarray_t* array) {
  return array->count == 0 ? nullptr : dymarray_at(array, array->count - 1);
}

const void* dymarray_clast(const dymarray_t* array) {
  return array->count == 0 ? nullptr : dymarray_cat(array, array->count - 1);
}

unsigned long long dymarray_indexof(const dymarray_t* array, const void* element) {
  const auto offset = static_cast<const char*>(element) - array->data;
  return static_cast<unsigned long long>(offset) / array->element_size;
}

unsigned long long dymarray_pop_back(dymarray_t* array) {
  if (array->count != 0) {
    array->count -= 1;
  }
  return array->count;
}

void dymarray_rewind(dymarray_t* array, unsigned long long n) {
  array->count = std::min(array->count, n);
}

void dymarray_swap(dymarray_t* array, unsigned long long i, unsigned long long j) {
  char* const first = static_cast<char*>(dymarray_at(array, i));
  if (i != j) {
    std::swap_ranges(first, first + array->element_size, static_cast<char*>(dymarray_at(array, j)));
  }
}

void dymarray_sort(dymarray_t* array, int (*compare)(const void*, const void*)) {
  if (array->count != 0) {
    std::qsort(array->data, array->count, array->element_size, compare);
  }
}
