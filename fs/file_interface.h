/* Files and directories for C. Every path is a bucket_t and must not be null. The functions neither
 * throw nor print.
 *
 * Unless its comment says otherwise, a function that returns an int returns 0 on success, and -1 on
 * failure with errno set by the failing call. The caller owns and releases a builder that is
 * returned by value. An `out` builder receives the result instead of its old content. It may be the
 * path itself.
 *
 * fs_realpath and fs_fcopy are not thread-safe: each uses a static buffer. */
#ifndef RUNENV_FS_FILE_INTERFACE_H
#define RUNENV_FS_FILE_INTERFACE_H

#include <dirent.h>
#include <stdio.h>

#include "core/bucket.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Return a new builder with a copy of a string or of a path. For a null string it is empty. */
bucket_t fs_init(const char* text);
bucket_t fs_copy(bucket_t* path);

/* Append components, each after one "/". A component that begins with "/" or a backslash replaces
 * the path. A null or empty component changes nothing. A null pointer ends the list of fs_joinv.
 * fs_join_ext then appends `ext` unchanged and returns the path. Any string may lie in the path. */
void fs_join(bucket_t* path, const char* component);
void fs_joinv(bucket_t* path, ...);
bucket_t* fs_join_ext(bucket_t* path, const char* component, const char* ext);

/* Replaces the path with its canonical absolute form. On failure the path is unchanged. */
int fs_realpath(bucket_t* path);

/* Store in `out` the text before the last "/", and the text after it. A path without "/" has the
 * directory name "." and an empty base name. For a name directly below "/", the directory name is
 * "/". Both return `out`. */
bucket_t* fs_dirname(bucket_t* path, bucket_t* out);
bucket_t* fs_basename(bucket_t* path, bucket_t* out);

/* Returns 1 if the path exists, otherwise 0. Follows links. */
int fs_exists(bucket_t* path);

/* Returns the type of the file at the path. Follows links. */
enum { FS_NONE = 0, FS_OTHER = 1, FS_FILE = 2, FS_DIRECTORY = 3, FS_SOCKET = 4 };
int fs_type(bucket_t* path);

/* Returns the size in bytes, or 0 on failure. */
long long fs_size(bucket_t* path);

/* Returns the time of the last modification in seconds since the epoch, or -1 on failure. */
long long fs_get_mtime(bucket_t* path);

/* Set the permission bits, and both the access and the modification time, in seconds since the
 * epoch. */
int fs_set_mode(bucket_t* path, unsigned int mode);
int fs_set_mtime(bucket_t* path, long seconds);

/* Creates a directory. Fails if the path exists. */
int fs_mkdir(bucket_t* path);

/* Creates a directory and its missing parents. Succeeds if the path exists, whatever its type. */
int fs_mkdir_recursive(bucket_t* path);

/* Removes a file or an empty directory. */
int fs_remove(bucket_t* path);

/* Removes a whole tree. Does not follow links and does not cross mount points. Kept on purpose: it
 * returns -1 even when the whole tree was removed. Check with fs_exists. */
int fs_remove_recursive(bucket_t* path);

/* Renames a file or directory. Replaces an existing file at `new_path`. */
int fs_rename(bucket_t* old_path, bucket_t* new_path);

/* Create an empty file, or EMPTY an existing one. fs_touch_path first creates missing parent
 * directories. */
int fs_touch(bucket_t* path);
int fs_touch_path(bucket_t* path);

/* Copies a file. The DESTINATION is the first argument. A failure may leave an incomplete
 * destination. Copying a file to itself empties it. */
int fs_fcopy(bucket_t* destination, bucket_t* source);

typedef struct istream istream;

/* Returns a stream that reads the file, or null on failure. Read it and destroy it with the
 * functions of stream/istream.h. */
istream* fs_open_read(bucket_t* path) __attribute__((warn_unused_result));

/* An output stream. */
typedef struct fs_ostream_t fs_ostream_t;
struct fs_ostream_t {
  /* Returns the number of bytes written. */
  unsigned long long (*write_len)(fs_ostream_t* stream, const char* bytes,
                                  unsigned long long count);
  /* Closes the file. Returns 0, or EOF on failure. The caller then frees the record. */
  int (*close)(fs_ostream_t* stream);
  FILE* file; /* invalid after close */
};

/* Creates or empties the file. Returns a malloc'ed output stream, or null on failure. */
fs_ostream_t* fs_open_write(bucket_t* path) __attribute__((warn_unused_result));

/* Reads the names in a directory, except those that begin with ".". There is no close function:
 * fs_dir_read closes the directory when it first returns 0. Every later call returns 0. */
typedef struct fs_dir_t {
  bucket_t* path; /* owned by the caller, who must not modify it while reading */
  DIR* handle;
  struct dirent* entry;
} fs_dir_t;

/* Opens the directory at `path`. */
int fs_dir_open(bucket_t* path, fs_dir_t* dir) __attribute__((warn_unused_result));

/* Moves to the next entry. Returns 1, or 0 at the end. */
int fs_dir_read(fs_dir_t* dir);

/* Return the name of the current entry, valid until the next read, and its path. Call them only
 * after fs_dir_read has returned 1. */
const char* fs_iter_name(fs_dir_t* dir);
bucket_t fs_iter_path(fs_dir_t* dir);

#ifdef __cplusplus
}
#endif

#endif
