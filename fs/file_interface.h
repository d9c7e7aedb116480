/* Files and directories in C form: every path is a bucket_t, results are plain integers (0 or a
 * count for success, -1 for failure, with errno as the failing call left it), nothing throws and
 * nothing prints.
 *
 * A builder returned by value is new and the caller's to release; an `out` builder receives the
 * result in place of what it held and may be the path itself. Builders are never null.
 * Not for two threads at once: fs_realpath, fs_fcopy. */
#ifndef RUNENV_FS_FILE_INTERFACE_H
#define RUNENV_FS_FILE_INTERFACE_H

#include <dirent.h>
#include <stdio.h>

#include "core/bucket.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A new builder holding a copy of a text or of a path; a null text gives an empty one. */
bucket_t fs_init(const char* text);
bucket_t fs_copy(bucket_t* path);

/* Appends a component behind one "/". One that begins with "/" or a backslash replaces the path, a
 * null or empty one changes nothing. The list of fs_joinv ends with a null pointer. fs_join_ext
 * appends `ext` verbatim afterwards and returns the path. The texts may lie in the path itself. The
 * path gets new storage: what bucket_cstring gave before is gone. */
void fs_join(bucket_t* path, const char* component);
void fs_joinv(bucket_t* path, ...);
bucket_t* fs_join_ext(bucket_t* path, const char* component, const char* ext);

/* Replaces the path by its canonical absolute form; on failure it stays. */
int fs_realpath(bucket_t* path);

/* What stands before the last "/" ("." without one, "/" for a first-level name), and what stands
 * after it (empty without one). Both return `out`. */
bucket_t* fs_dirname(bucket_t* path, bucket_t* out);
bucket_t* fs_basename(bucket_t* path, bucket_t* out);

/* 1 if there is something at the path, else 0. */
int fs_exists(bucket_t* path);

/* What is at the path, links followed. */
enum { FS_NONE = 0, FS_OTHER = 1, FS_FILE = 2, FS_DIRECTORY = 3, FS_SOCKET = 4 };
int fs_type(bucket_t* path);

/* The size in bytes, 0 on failure. */
long long fs_size(bucket_t* path);

/* The time of the last modification in seconds since the epoch, -1 on failure. */
long long fs_get_mtime(bucket_t* path);

/* Set the permission bits, or both times in seconds since the epoch. */
int fs_set_mode(bucket_t* path, unsigned int mode);
int fs_set_mtime(bucket_t* path, long seconds);

/* Creates a directory; an existing entry is a failure. */
int fs_mkdir(bucket_t* path);

/* Creates a directory and the missing ones above it; an existing entry of any kind is success. */
int fs_mkdir_recursive(bucket_t* path);

/* Removes a file or an empty directory. */
int fs_remove(bucket_t* path);

/* Removes a whole tree on one file system, not following links. Kept as it is: -1 in any case but
 * that of a top that outlives its own removal, so look with fs_exists. */
int fs_remove_recursive(bucket_t* path);

int fs_rename(bucket_t* old_path, bucket_t* new_path);

/* Creates an empty file, EMPTYING an existing one; the latter creates the directories above it. */
int fs_touch(bucket_t* path);
int fs_touch_path(bucket_t* path);

/* Copies a file; mind the order. On failure an incomplete destination may be left. A file that is
 * copied onto itself is emptied. */
int fs_fcopy(bucket_t* destination, bucket_t* source);

/* A stream over the file, null on failure. It is read and closed by the functions of
 * stream/istream.h. */
typedef struct istream istream;
istream* fs_open_read(bucket_t* path) __attribute__((warn_unused_result));

/* A record for writing. Its close function closes the file; then the caller frees the record. */
typedef struct fs_ostream_t fs_ostream_t;
struct fs_ostream_t {
  unsigned long long (*write_len)(fs_ostream_t* stream, const char* bytes,
                                  unsigned long long count);
  int (*close)(fs_ostream_t* stream);
  FILE* file;
};

/* A writer of the file, created or emptied; malloc'ed, null on failure. */
fs_ostream_t* fs_open_write(bucket_t* path) __attribute__((warn_unused_result));

/* Reads the names in a directory; those that begin with "." are left out. There is no closing:
 * fs_dir_read closes the directory when it returns 0, and returns 0 ever after. */
typedef struct fs_dir_t {
  bucket_t* path; /* the caller's, to be kept unchanged meanwhile */
  DIR* handle;
  struct dirent* entry;
} fs_dir_t;

int fs_dir_open(bucket_t* path, fs_dir_t* dir) __attribute__((warn_unused_result));

/* 1 with a new current entry, 0 at the end. */
int fs_dir_read(fs_dir_t* dir);

/* The current entry's name, valid until the next read, and its path. */
const char* fs_iter_name(fs_dir_t* dir);
bucket_t fs_iter_path(fs_dir_t* dir);

#ifdef __cplusplus
}
#endif

#endif
