/* A C11 program that includes every C header and calls functions of every family. */
#define _POSIX_C_SOURCE 200809L /* mkdtemp */
#undef NDEBUG
#include <assert.h>
#include <stdlib.h>
#include <string.h>

#include "core/bucket.h"
#include "core/dymarray.h"
#include "core/dympage.h"
#include "core/dympool.h"
#include "core/version.h"
#include "fs/file_interface.h"
#include "stream/istream.h"

int main(void) {
  assert(strcmp(runenv_version(), RUNENV_VERSION) == 0 && strlen(RUNENV_VERSION) >= 5);
  dymarray_t array;
  assert(dymarray_init(&array, 1, 0) == 64 && dymarray_begin(&array) == dymarray_end(&array));
  *(char*)dymarray_alloc(&array) = 'a';
  assert(*(const char*)dymarray_cat(&array, 0) == 'a');
  dymarray_destroy(&array);
  dympool_t pool;
  dympool_init(&pool, 16, 8);
  assert(dympool_free(&pool, dympool_alloc(&pool)) != NULL);
  dympool_destroy(&pool);
  dympage_t own, *pages = dympage_create();
  dympage_init(&own);
  assert(dympage_usage(pages) == 10485784 && dympage_usage(&own) == dympage_usage(pages));
  dympage_destroy(pages);
  dympage_destroy(&own);

  char directory[] = "/tmp/runenv-c-XXXXXX";
  bucket_t path = fs_init(mkdtemp(directory));
  fs_join(&path, "file");
  assert(fs_touch(&path) == 0);
  istream* in = fs_open_read(&path);
  char byte;
  assert(istream_read_len(in, &byte, 1) == 0);
  istream_destroy(in);
  fs_remove_recursive(fs_dirname(&path, &path));
  assert(fs_exists(&path) == 0);
  bucket_release(&path);
  return 0;
}
