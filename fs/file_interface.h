/* Files and directories in C form. Every path is a bucket_t, never null. Nothing throws and nothing
 * prints.
 *
 * A function that returns an int returns 0 for success, or -1 for failure with errno as the failing
 * call left it, unless its comment says otherwise. A builder that is returned by value is new; the
 * caller releases it. An `out` builder receives the result in place of what it held. It may be the
 * path itself.
 *
 * fs_realpath and fs_fcopy are not for two threads at once. */
#ifndef RUNENV_FS_FILE_INTERFACE_H
#define RUNENV_FS_FILE_INTERFACE_H

#include <dirent.h>
#include <stdio.h>

#include "core/bucket.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A new builder that holds a copy of a text or of a path. It is empty for a null text. */
bucket_t fs_init(const char* text);
bucket_t fs_copy(bucket_t* path);

/* Append components, each behind one "/". One that begins with "/" or a backslash replaces the
 * path. A null or empty one changes nothing. The list of fs_joinv ends with a null pointer.
 * fs_join_ext then appends `ext` verbatim and returns the path. Any of the texts may lie in the
 * path. */
void fs_join(bucket_t* path, const char* component);
void fs_joinv(bucket_t* path, ...);
bucket_t* fs_join_ext(bucket_t* path, const char* component, const char* ext);

/* Replaces the path by its canonical absolute form. On failure it stays. */
int fs_realpath(bucket_t* path);

/* The text before the last "/", and the text after it. A path without "/" has the directory name
 * "." and an empty base name. A first-level name has the directory name "/". Both return `out`. */
bucket_t* fs_dirname(bucket_t* path, bucket_t* out);
bucket_t* fs_basename(bucket_t* path, bucket_t* out);

/* 1 if there is something at the path, else 0. Links are followed. */
int fs_exists(bucket_t* path);

/* The kind of what is at the path, links followed. */
enum { FS_NONE = 0, FS_OTHER = 1, FS_FILE = 2, FS_DIRECTORY = 3, FS_SOCKET = 4 };
int fs_type(bucket_t* path);

/* The size in bytes, 0 on failure. */
long long fs_size(bucket_t* path);

/* The time of the last modification in seconds since the epoch, -1 on failure. */
long long fs_get_mtime(bucket_t* path);

/* Set the permission bits, and the times of access and modification in seconds since the epoch. */
int fs_set_mode(bucket_t* path, unsigned int mode);
int fs_set_mtime(bucket_t* path, long seconds);

/* Creates a directory; an existing entry is a failure. */
int fs_mkdir(bucket_t* path);

/* Creates a directory and the missing ones above it; an existing entry of any kind is success. */
int fs_mkdir_recursive(bucket_t* path);

/* Removes a file or an empty directory. */
int fs_remove(bucket_t* path);

/* Removes a whole tree on one file system, without following links. Kept as it is: the result is -1
 * also when the whole tree is gone. Ask fs_exists. */
int fs_remove_recursive(bucket_t* path);

/* Renames a file or directory; an existing file at `new_path` is replaced. */
int fs_rename(bucket_t* old_path, bucket_t* new_path);

/* Create an empty file; an existing one is EMPTIED. fs_touch_path creates the directories above it
 * first. */
int fs_touch(bucket_t* path);
int fs_touch_path(bucket_t* path);

/* Copies a file. The DESTINATION comes first. A failure may leave an incomplete destination. A copy
 * of a file onto itself empties it. */
int fs_fcopy(bucket_t* destination, bucket_t* source);

/* A stream over the file, null on failure. It is read and closed by the functions of
 * stream/istream.h. */
typedef struct istream istream;
istream* fs_open_read(bucket_t* path) __attribute__((warn_unused_result));

/* A record for writing. */
typedef struct fs_ostream_t fs_ostream_t;
struct fs_ostream_t {
  /* Returns the number of bytes written. */
  unsigned long long (*write_len)(fs_ostream_t* stream, const char* bytes,
                                  unsigned long long count);
  /* Closes the file and returns 0, or EOF on failure; the caller then frees the record. */
  int (*close)(fs_ostream_t* stream);
  FILE* file; /* not to be used once it is closed */
};

/* A malloc'ed writer of the file, which is created or emptied; null on failure. */
fs_ostream_t* fs_open_write(bucket_t* path) __attribute__((warn_unused_result));

/* Reads the names in a directory, except those that begin with ".". No function closes the
 * directory: fs_dir_read does so when it returns 0. From then on it returns 0. */
typedef struct fs_dir_t {
  bucket_t* path; /* the caller's, who must not change it while reading */
  DIR* handle;
  struct dirent* entry;
} fs_dir_t;

/* Begins to read the directory at `path`. */
int fs_dir_open(bucket_t* path, fs_dir_t* dir) __attribute__((warn_unused_result));

/* 1 with a new current entry, 0 at the end. */
int fs_dir_read(fs_dir_t* dir);

/* The current entry's name, valid until the next read, and its path. Call them only after
 * fs_dir_read has returned 1. */
const char* fs_iter_name(fs_dir_t* dir);
bucket_t fs_iter_path(fs_dir_t* dir);

#ifdef __cplusplus
}
#endif

#endif
