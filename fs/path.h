// A path as a value: a string that names a file or directory. It is stored exactly as given.
//
// Paths are not normalised. Nothing is cached: every query asks the file system. Each comment says
// whether a failure throws Error or is returned.
#pragma once

#include <cstdio>
#include <string>
#include <utility>

// Paths and directories.
namespace fs {

// A path.
class path_t {
 public:
  path_t(const char* path) : text(path) {}             // throws std::logic_error for null
  path_t(std::string path) : text(std::move(path)) {}  // must not contain NUL

  // Returns the text, which is owned by the path and valid until the path is modified.
  const char* cstring() const { return text.c_str(); }

  // Appends a component after one "/". An absolute component replaces the path. A null or empty
  // component changes nothing. The component may lie in this path.
  path_t& join(const char* component);

  // Joins `name`, then appends `ext` unchanged. `ext` must include the dot. Both may lie in this
  // path.
  path_t& join_ext(const char* name, const char* ext);

  // Replaces the text with its canonical absolute form. Throws Error on failure.
  path_t& real_path();

  // Returns everything before the last "/". Returns "." if there is no "/", and "/" if the only one
  // is at the start.
  path_t dir_name() const;

  // Returns everything after the last "/". Returns an empty path if there is no "/".
  path_t base_name() const;

  // Open the file. The caller closes it. With `create_parents`, missing parent directories are
  // created first. Throw Error on failure.
  [[nodiscard]] FILE* open_read() const;
  [[nodiscard]] FILE* open_write(bool create_parents) const;
  [[nodiscard]] FILE* open_append(bool create_parents) const;

  // Creates the directory. Succeeds if the path exists, whatever its type. With `recursive`,
  // missing parents are created first, and an existing path must be a directory. Throws Error on
  // failure.
  const path_t& create_directory(bool recursive) const;
  path_t& create_directory(bool recursive);

  // Return whether the path is a directory, is a regular file, or exists. Follow links.
  bool is_directory() const;
  bool is_regular_file() const;
  bool exists() const { return exists(false); }
  bool exists(bool no_follow) const;  // no_follow: true for a dangling link, too

  // Returns whether the text is exactly "/". Throws Error for an empty path.
  bool is_root() const;

  // Returns the time of the last modification in seconds since the epoch, or 0 on failure.
  long long get_mtime() const;

  // Sets the access and the modification time, in seconds since the epoch. Returns 0, or -1 with
  // errno set.
  int set_utime(long atime, long mtime) const;

  // Creates a symbolic link to `target` at this path. Returns true on success.
  bool symlink(const char* target) const;

  // Removes a file or an empty directory. Kept on purpose: returns true if this FAILED.
  [[nodiscard("true means that it failed")]] bool remove() const;

  // Removes a whole tree. Does not follow links and does not cross mount points. Returns true on
  // success, and false if the path does not exist or something could not be removed.
  bool remove_directory() const;

 private:
  FILE* open_for(const char* mode, const char* after) const;
  void create_missing_ancestors() const;

  std::string text;
};

}  // namespace fs
