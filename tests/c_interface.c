/* The C families as a C11 program sees them: every header included, every family called. */
#define _POSIX_C_SOURCE 200809L /* mkdtemp */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "core/bucket.h"
#include "core/dymarray.h"
#include "core/dympage.h"
#include "core/dympool.h"
#include "fs/file_interface.h"
#include "stream/istream.h"

#define CHECK(condition) \
  ((condition) ? (void)0 : (fprintf(stderr, "%d: %s\n", __LINE__, #condition), exit(1)))

static int descending(const void* a, const void* b) {
  return *(const char*)b - *(const char*)a;
}

static void check_arrays_and_pools(void) {
  dymarray_t array;
  dymarray_init(&array, 1, 0);
  CHECK(dymarray_begin(&array) == dymarray_end(&array));
  *(char*)dymarray_alloc(&array) = 'a';
  *(char*)dymarray_alloc(&array) = 'b';
  dymarray_sort(&array, descending);
  CHECK(*(const char*)dymarray_cat(&array, 0) == 'b');
  dymarray_destroy(&array);
  dympool_t pool;
  dympool_init(&pool, 16, 8);
  CHECK(dympool_free(&pool, dympool_alloc(&pool)) != NULL);
  dympool_destroy(&pool);
  dympage_t* pages = dympage_create();
  CHECK(*(char*)dympage_alloc(pages, 1, 1) == 0);
  dympage_destroy(pages);
}

static void check_files(const char* directory) {
  bucket_t path = fs_init(directory);
  fs_joinv(&path, "c", "", "file", NULL);
  CHECK(fs_touch_path(&path) == 0);
  fs_ostream_t* out = fs_open_write(&path);
  CHECK(out->write_len(out, "bytes", 5) == 5 && out->close(out) == 0);
  free(out);
  istream* in = fs_open_read(&path);
  char bytes[8] = {0};
  CHECK(istream_seek_pos(in, 2, -3) == 0);
  CHECK(istream_read_len(in, bytes, sizeof bytes) == 3 && strcmp(bytes, "tes") == 0);
  istream_destroy(in);

  bucket_t parent = fs_copy(&path);
  fs_dirname(&path, &parent);
  fs_dir_t listing;
  CHECK(fs_dir_open(&parent, &listing) == 0 && fs_dir_read(&listing) == 1);
  CHECK(strcmp(fs_iter_name(&listing), "file") == 0 && fs_dir_read(&listing) == 0);
  fs_remove_recursive(&parent);
  CHECK(fs_exists(&path) == 0);
  bucket_release(&path);
  bucket_release(&parent);
}

int main(void) {
  char directory[] = "/tmp/runenv-c-XXXXXX";
  check_arrays_and_pools();
  check_files(mkdtemp(directory));
  return remove(directory);
}
