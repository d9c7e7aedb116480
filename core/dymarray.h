/* A growable array of fixed-size elements that grows by a fixed step. Every new element is
 * zero-filled. Growing invalidates all pointers to elements.
 *
 * Sizes are in bytes, indices and counts in elements. A failed allocation ends the process. */
#ifndef RUNENV_CORE_DYMARRAY_H
#define RUNENV_CORE_DYMARRAY_H

#include "core/cast.h"
#include "core/clear.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct dymarray_t {
  unsigned long long element_size;
  unsigned long long step;     /* elements added at each growth */
  char* data;                  /* null until the first allocation */
  unsigned long long capacity; /* elements allocated */
  unsigned long long count;    /* elements in use */
} dymarray_t;

/* Initialises an empty array. Returns the step that it uses: `step`, or 64 if `step` is 0. */
unsigned long long dymarray_init(dymarray_t* array, unsigned long long element_size,
                                 unsigned long long step);

/* Frees the elements. The array is then empty and can be used again. */
void dymarray_destroy(dymarray_t* array);

/* Internal to dymarray_alloc: makes room for `step` more elements. */
void dymarray_grow(dymarray_t* array);

/* Appends a zero-filled element and returns it. */
static inline void* dymarray_alloc(dymarray_t* array) {
  if (array->count == array->capacity) {
    dymarray_grow(array);
  }
  return runenv_clear(array->data + array->count++ * array->element_size, array->element_size);
}

/* Returns element `index`. The index is not checked. */
static inline void* dymarray_at(dymarray_t* array, unsigned long long index) {
  return array->data + index * array->element_size;
}
static inline const void* dymarray_cat(const dymarray_t* array, unsigned long long index) {
  return array->data + index * array->element_size;
}

/* Returns the last element, or null if the array is empty. */
void* dymarray_last(dymarray_t* array);
const void* dymarray_clast(const dymarray_t* array);

/* Iteration with pointers: start at begin, advance with next, stop at end. */
static inline void* dymarray_begin(dymarray_t* array) {
  return array->data;
}
static inline void* dymarray_next(dymarray_t* array, void* element) {
  return RUNENV_CAST(char*, element) + array->element_size;
}
static inline void* dymarray_end(dymarray_t* array) {
  return array->count == 0 ? array->data : dymarray_at(array, array->count);
}
static inline const void* dymarray_cbegin(const dymarray_t* array) {
  return array->data;
}
static inline const void* dymarray_cnext(const dymarray_t* array, const void* element) {
  return RUNENV_CAST(const char*, element) + array->element_size;
}
static inline const void* dymarray_cend(const dymarray_t* array) {
  return array->count == 0 ? array->data : dymarray_cat(array, array->count);
}

/* Returns the index of an element of this array. */
unsigned long long dymarray_indexof(const dymarray_t* array, const void* element);

/* Returns the number of elements. */
static inline unsigned long long dymarray_size(const dymarray_t* array) {
  return array->count;
}

/* Removes the last element, if any. Returns the new count. */
unsigned long long dymarray_pop_back(dymarray_t* array);

/* Removes all but the first `n` elements. Does nothing if there are no more than `n`. */
void dymarray_rewind(dymarray_t* array, unsigned long long n);

/* Exchanges two elements. */
void dymarray_swap(dymarray_t* array, unsigned long long i, unsigned long long j);

/* Sorts with `compare`, a comparison function as for qsort. */
void dymarray_sort(dymarray_t* array, int (*compare)(const void*, const void*));

/* Returns the number of elements that are allocated but not in use. */
static inline unsigned long long dymarray_overhead(const dymarray_t* array) {
  return array->capacity - array->count;
}

#ifdef __cplusplus
}
#endif

#endif
