// A path as a value: one text naming a file or directory, kept exactly as given.
//
// Nothing is normalised and nothing is cached: every query asks the file system. Operations throw
// Error where they fail, queries and small changes return their result.
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
  path_t(std::string path) : text(std::move(path)) {}  // of bytes other than NUL

  // The text, owned by the path and valid until its next change.
  const char* cstring() const { return text.c_str(); }

  // Appends a component behind one "/". An absolute one replaces the path; a null or empty one
  // changes nothing. The component may lie in this path.
  path_t& join(const char* component);

  // join, then `ext` verbatim: the caller gives the dot. Both may lie in this path.
  path_t& join_ext(const char* name, const char* ext);

  // Replaces the text by its canonical absolute form. Throws Error.
  path_t& real_path();

  // Everything before the last "/"; "." where there is none, "/" for a first-level name.
  path_t dir_name() const;

  // Everything after the last "/"; empty where there is none.
  path_t base_name() const;

  // Open the file, which the caller closes. With `create_parents`, the directories above it are
  // created first. Throw Error.
  [[nodiscard]] FILE* open_read() const;
  [[nodiscard]] FILE* open_write(bool create_parents) const;
  [[nodiscard]] FILE* open_append(bool create_parents) const;

  // Creates the directory. Throws Error. Anything that stands there already counts as success. With
  // `recursive`, missing ancestors are created first, and only a directory may stand there.
  const path_t& create_directory(bool recursive) const;
  path_t& create_directory(bool recursive);

  // Whether there is a directory, a regular file, or anything at all at the path. Links are
  // followed.
  bool is_directory() const;
  bool is_regular_file() const;
  bool exists() const { return exists(false); }
  bool exists(bool no_follow) const;  // no_follow: a link itself counts, also a dangling one

  // Whether the text is exactly "/". Throws Error for an empty path.
  bool is_root() const;

  // The time of the last modification in seconds since the epoch; 0 when there is nothing to see.
  long long get_mtime() const;

  // Sets the times of access and modification, in seconds since the epoch. Returns 0, or -1 with
  // errno.
  int set_utime(long atime, long mtime) const;

  // Makes this path a symbolic link that points at `target`; true on success.
  bool symlink(const char* target) const;

  // Removes a file or an empty directory. Kept as it is: true means that this FAILED.
  [[nodiscard("true means that it failed")]] bool remove() const;

  // Removes a whole tree on one file system, without following links. True when the tree is gone,
  // false when something could not be removed.
  bool remove_directory() const;

 private:
  FILE* open_for(const char* mode, const char* after) const;
  void create_missing_ancestors() const;

  std::string text;
};

}  // namespace fs
