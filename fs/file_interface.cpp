#include "fs/file_interface.h"

#include <sys/stat.h>
#include <utime.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/allocation.h"
#include "core/overlap.h"
#include "core/owner.h"
#include "fs/tree.h"

static_assert(sizeof(fs_ostream_t) == 24, "C callers rely on three 64-bit words");

static constexpr size_t kCopiedBlock = 1024;

static bool get_status(bucket_t* path, struct stat* status) {
  return stat(bucket_cstring(path), status) == 0;
}

// Replaces the text of the path. The new text may have been made from the old one.
static bucket_t* replace(bucket_t* path, const bucket_t& text) {
  bucket_release(path);
  *path = text;
  return path;
}

static bool lies_in(const bucket_t* path, const char* text) {
  return runenv::offset_in(path->data, path->capacity, text) >= 0;
}

// `own`: the strings to append lie in the path. Then this gives the path a copy of its text and
// returns the original text, which keeps those strings valid until they are appended.
static runenv::OwnedBucket keep_texts(bucket_t* path, bool own) {
  if (!own) {
    return runenv::OwnedBucket(bucket_t{});
  }
  const bucket_t storage = *path;
  *path = fs_copy(path);
  return runenv::OwnedBucket(storage);
}

// The component must not lie in the path.
static void append_component(bucket_t* path, const char* component) {
  if (component == nullptr || component[0] == '\0') {
    return;
  }
  // A backslash counts as absolute here, unlike in fs::path_t.
  if (component[0] == '/' || component[0] == '\\' || path->length == 0) {
    bucket_release(path);
  } else if (path->data[path->length - 1] != '/') {
    bucket_push(path, '/');
  }
  bucket_append(path, component);
}

bucket_t fs_init(const char* text) {
  bucket_t path{};
  bucket_append(&path, text);
  return path;
}

bucket_t fs_copy(bucket_t* path) {
  return fs_init(bucket_cstring(path));
}

void fs_join(bucket_t* path, const char* component) {
  fs_join_ext(path, component, nullptr);
}

void fs_joinv(bucket_t* path, ...) {
  va_list components;
  bool own = false;
  va_start(components, path);
  while (const char* const component = va_arg(components, const char*)) {
    own = own || lies_in(path, component);
  }
  va_end(components);
  const runenv::OwnedBucket kept = keep_texts(path, own);
  va_start(components, path);
  while (const char* const component = va_arg(components, const char*)) {
    append_component(path, component);
  }
  va_end(components);
}

bucket_t* fs_join_ext(bucket_t* path, const char* component, const char* ext) {
  const bool own = lies_in(path, component) || lies_in(path, ext);
  const runenv::OwnedBucket kept = keep_texts(path, own);
  append_component(path, component);
  return bucket_append(path, ext);
}

int fs_realpath(bucket_t* path) {
  static char resolved[PATH_MAX];
  if (realpath(bucket_cstring(path), resolved) == nullptr) {
    return -1;
  }
  replace(path, fs_init(resolved));
  return 0;
}

bucket_t* fs_dirname(bucket_t* path, bucket_t* out) {
  const char* const text = bucket_cstring(path);
  const char* const slash = std::strrchr(text, '/');
  if (slash == nullptr) {
    return replace(out, fs_init("."));
  }
  if (slash == text) {
    return replace(out, fs_init("/"));
  }
  bucket_t directory = fs_init(text);
  bucket_drop(&directory, std::strlen(slash));
  return replace(out, directory);
}

bucket_t* fs_basename(bucket_t* path, bucket_t* out) {
  const char* const slash = std::strrchr(bucket_cstring(path), '/');
  // The base name of a bare name is empty on purpose, as in fs::path_t.
  return replace(out, fs_init(slash == nullptr ? nullptr : slash + 1));
}

int fs_exists(bucket_t* path) {
  struct stat status;
  return get_status(path, &status) ? 1 : 0;
}

int fs_type(bucket_t* path) {
  struct stat status;
  if (!get_status(path, &status)) {
    return FS_NONE;
  }
  switch (status.st_mode & S_IFMT) {
    case S_IFREG:
      return FS_FILE;
    case S_IFDIR:
      return FS_DIRECTORY;
    case S_IFSOCK:
      return FS_SOCKET;
    default:
      return FS_OTHER;
  }
}

long long fs_size(bucket_t* path) {
  struct stat status;
  return get_status(path, &status) ? status.st_size : 0;
}

long long fs_get_mtime(bucket_t* path) {
  struct stat status;
  return get_status(path, &status) ? status.st_mtime : -1;
}

int fs_set_mode(bucket_t* path, unsigned int mode) {
  return chmod(bucket_cstring(path), mode);
}

int fs_set_mtime(bucket_t* path, long seconds) {
  const utimbuf times{seconds, seconds};
  return utime(bucket_cstring(path), &times);
}

int fs_mkdir(bucket_t* path) {
  return mkdir(bucket_cstring(path), runenv::kDirectoryMode);
}

// fs_mkdir_recursive recurses once for each component of the path. The functions that it calls are
// not inlined, so that its stack frames stay small.
[[gnu::noinline]] static bool is_there(bucket_t* path) {
  return fs_exists(path) != 0;
}

[[gnu::noinline]] static runenv::OwnedBucket parent_of(bucket_t* path) {
  bucket_t parent{};
  fs_dirname(path, &parent);
  return runenv::OwnedBucket(parent);
}

int fs_mkdir_recursive(bucket_t* path) {
  if (is_there(path)) {
    return 0;
  }
  runenv::OwnedBucket parent = parent_of(path);
  bucket_drop(&parent, parent.length - runenv::creatable_length({parent.data, parent.length}));
  // The parent of "." is "." again. If it cannot be accessed, the recursion must end here.
  const bool is_top = std::strcmp(parent.data, bucket_cstring(path)) == 0;
  const int result = is_top ? 0 : fs_mkdir_recursive(&parent);
  return result != 0 ? result : fs_mkdir(path);
}

int fs_remove(bucket_t* path) {
  return std::remove(bucket_cstring(path));
}

int fs_remove_recursive(bucket_t* path) {
  if (runenv::remove_tree(bucket_cstring(path)) != 0) {
    return -1;
  }
  // The walk has already removed the top directory, so this fails. Kept on purpose.
  return fs_remove(path);
}

int fs_rename(bucket_t* old_path, bucket_t* new_path) {
  return std::rename(bucket_cstring(old_path), bucket_cstring(new_path));
}

// Files are opened close-on-exec ("e"): no child process inherits them.
int fs_touch(bucket_t* path) {
  FILE* const file = std::fopen(bucket_cstring(path), "wbe");
  if (file == nullptr) {
    return -1;
  }
  std::fclose(file);
  return 0;
}

int fs_touch_path(bucket_t* path) {
  runenv::OwnedBucket parent = parent_of(path);
  const int result = fs_mkdir_recursive(&parent);
  return result != 0 ? result : fs_touch(path);
}

static int copy_content(FILE* to, FILE* from) {
  static char block[kCopiedBlock];
  for (;;) {
    const size_t n = std::fread(block, 1, sizeof block, from);
    if (n == 0) {
      return std::feof(from) ? 0 : -1;
    }
    if (std::fwrite(block, 1, n, to) != n) {
      return -1;
    }
  }
}

// Closes a file and keeps the errno of an earlier failure.
static void close_quietly(FILE* file) {
  const int error_number = errno;
  std::fclose(file);
  errno = error_number;
}

int fs_fcopy(bucket_t* destination, bucket_t* source) {
  using File = runenv::owner<FILE, close_quietly>;
  File to(std::fopen(bucket_cstring(destination), "wbe"));
  if (to == nullptr) {
    return -1;
  }
  const File from(std::fopen(bucket_cstring(source), "rbe"));
  if (from == nullptr || copy_content(to.get(), from.get()) != 0) {
    return -1;
  }
  return std::fclose(to.release()) == 0 ? 0 : -1;  // writing the buffered bytes may fail
}

static unsigned long long file_write_len(fs_ostream_t* stream, const char* bytes,
                                         unsigned long long count) {
  return std::fwrite(bytes, 1, count, stream->file);
}

static int file_close(fs_ostream_t* stream) {
  return std::fclose(stream->file);
}

fs_ostream_t* fs_open_write(bucket_t* path) {
  FILE* const file = std::fopen(bucket_cstring(path), "wbe");
  if (file == nullptr) {
    return nullptr;
  }
  auto* record = static_cast<fs_ostream_t*>(runenv::allocate(sizeof(fs_ostream_t)));
  *record = fs_ostream_t{.write_len = file_write_len, .close = file_close, .file = file};
  return record;
}

int fs_dir_open(bucket_t* path, fs_dir_t* dir) {
  *dir = fs_dir_t{.path = path, .handle = opendir(bucket_cstring(path)), .entry = nullptr};
  return dir->handle == nullptr ? -1 : 0;
}

int fs_dir_read(fs_dir_t* dir) {
  if (dir->handle == nullptr) {
    return 0;
  }
  do {
    dir->entry = readdir(dir->handle);
  } while (dir->entry != nullptr && dir->entry->d_name[0] == '.');
  if (dir->entry != nullptr) {
    return 1;
  }
  closedir(dir->handle);
  dir->handle = nullptr;
  return 0;
}

const char* fs_iter_name(fs_dir_t* dir) {
  return dir->entry->d_name;
}

bucket_t fs_iter_path(fs_dir_t* dir) {
  bucket_t path = fs_copy(dir->path);
  append_component(&path, fs_iter_name(dir));
  return path;
}
