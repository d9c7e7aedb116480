// A path as a value: one text naming a file or directory, kept exactly as given.
//
// Nothing is normalised and nothing is cached: every query asks the file system. Operations that
// fail for a reason worth telling throw Error; queries return what they see. Not for two threads at
// once: real_path.
#pragma once

#include <cstdio>
#include <string>

namespace fs {

class path_t {
 public:
  path_t(const char* path) : text(path) {}

  // The text, owned by the path.
  const char* cstring() const { return text.c_str(); }

  // Appends a component behind one "/"; an absolute one replaces the path, a null or empty one
  // changes nothing. It may lie in this path.
  path_t& join(const char* component);

  // join, then `ext` verbatim: the caller gives the dot. Both may lie in this path.
  path_t& join_ext(const char* name, const char* ext);

  // Replaces the text by its canonical absolute form. Throws Error.
  path_t& real_path();

  // Everything before the last "/"; "." where there is none, "/" for a first-level name.
  path_t dir_name() const;

  // Everything after the last "/"; empty where there is none.
  path_t base_name() const;

  // Open the file; the caller closes it. The latter two create the directories above it first if
  // asked to. Throw Error.
  [[nodiscard]] FILE* open_read() const;
  [[nodiscard]] FILE* open_write(bool create_parents) const;
  [[nodiscard]] FILE* open_append(bool create_parents) const;

  // Creates the directory. Alone, anything that stands there already counts as success; with
  // `recursive`, missing ancestors are created first and a file in the way is an error. Throws
  // Error.
  const path_t& create_directory(bool recursive) const;
  path_t& create_directory(bool recursive);

  bool is_directory() const;
  bool is_regular_file() const;
  bool exists() const { return exists(false); }
  bool exists(bool no_follow) const;  // no_follow: a link itself counts, also a dangling one

  // Whether the text is exactly "/". Throws Error for an empty path.
  bool is_root() const;

  // The time of the last modification in seconds since the epoch; 0 when there is none to tell.
  long long get_mtime() const;

  // Sets both times, in seconds since the epoch: 0, or -1 with errno.
  int set_utime(long atime, long mtime) const;

  // Makes this path a symbolic link that points at `target`; true on success.
  bool symlink(const char* target) const;

  // Removes a file or an empty directory. Kept as it is: true means that it FAILED.
  [[nodiscard("true means that it failed")]] bool remove() const;

  // Removes a whole tree on one file system, not following links. True when the tree is gone,
  // false when the walk stopped at something that could not be removed.
  bool remove_directory() const;

 private:
  FILE* open_for(const char* mode, const char* after) const;
  void create_missing_ancestors() const;

  std::string text;
};

}  // namespace fs
