/* The C families as a C11 program sees them: every header included, every family called. */
#define _POSIX_C_SOURCE 200809L /* mkdtemp */
#undef NDEBUG
#include <assert.h>
#include <stdlib.h>

#include "core/bucket.h"
#include "core/dymarray.h"
#include "core/dympage.h"
#include "core/dympool.h"
#include "fs/file_interface.h"
#include "stream/istream.h"

int main(void) {
  dymarray_t array;
  dymarray_init(&array, 1, 0);
  assert(dymarray_begin(&array) == dymarray_end(&array));
  *(char*)dymarray_alloc(&array) = 'a';
  assert(*(const char*)dymarray_cat(&array, 0) == 'a');
  dymarray_destroy(&array);
  dympool_t pool;
  dympool_init(&pool, 16, 8);
  assert(dympool_free(&pool, dympool_alloc(&pool)) != NULL);
  dympool_destroy(&pool);
  dympage_t* pages = dympage_create();
  assert(*(char*)dympage_alloc(pages, 1, 1) == 0 && dympage_usage(pages) == 10485784);
  dympage_destroy(pages);

  char directory[] = "/tmp/runenv-c-XXXXXX";
  bucket_t path = fs_init(mkdtemp(directory));
  fs_joinv(&path, "c", "", "file", NULL);
  assert(fs_touch_path(&path) == 0);
  istream* in = fs_open_read(&path);
  char byte;
  assert(istream_read_len(in, &byte, 1) == 0);
  istream_destroy(in);
  bucket_release(&path);
  bucket_append(&path, directory);
  fs_remove_recursive(&path);
  assert(fs_exists(&path) == 0);
  bucket_release(&path);
  return 0;
}
