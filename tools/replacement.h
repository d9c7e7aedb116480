// A file that appears under its name only when it is complete.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "core/owner.h"
#include "fs/path.h"

namespace runenv {

inline constexpr mode_t kServedMode = 0644;  // what a web server needs of a file, for `commit`

// A new file that takes its place when it is complete. Until then it has no name: no other user can
// reach it, and nothing of it is left if it never takes its place.
//
// Some file systems, such as NFS, have no files without a name. There it has a temporary one, such
// as ".runenv-publish#abcdef". The destructor removes that, and so does a signal that ends the
// program. Only one Replacement may exist at a time.
//
// The functions throw Error with the path in front.
class Replacement {
 public:
  // The file is to take the place at `path`. It is made in the same directory, or in `made_in`, a
  // directory of the same file system.
  explicit Replacement(const fs::path_t& path);
  Replacement(const fs::path_t& path, const fs::path_t& made_in);
  ~Replacement();
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  // Appends the bytes.
  void write(const char* bytes, size_t count);

  // Drops what is behind the first `size` bytes.
  void truncate(off_t size);

  off_t size() const;

  // Returns `count` bytes of the content from `offset` on, fewer only at its end.
  std::string read(off_t offset, size_t count) const;

  // Open for reading and appending, as long as this object lives.
  int descriptor() const { return file.get(); }

  // A path that opens this file, whatever its name is. It is for this process only, which may
  // redirect a child there.
  std::string descriptor_path() const;

  // Stores the content on the disk. What is read after this comes from there.
  void settle();

  // Puts the file in its place and stores its name on the disk too. The file gets the permissions
  // of the file that it replaces, or those of any new file, and those in `at_least`. Returns false
  // if there is a file by now and `over_existing` is false. After an Error it is not in place,
  // unless the message says so.
  bool commit(bool over_existing, mode_t at_least = 0);

 private:
  void take_temporary_name(const fs::path_t& directory);
  bool link_to(const fs::path_t& name) const;
  bool take_free_place();
  void replace();

  const fs::path_t target;
  std::string temporary;  // the temporary name; empty: none
  unique_fd file;
};

// Opens the directory for reading. Throws Error with the path in front.
unique_fd open_directory(const fs::path_t& path);

// Waits for the lock on the directory, which lasts as long as the descriptor is open. Returns
// without a lock where there is none, as on some network file systems.
void lock_directory(int descriptor);

// Stores the names in the directory on the disk. Throws Error with the path in front.
void sync_directory(int descriptor, const fs::path_t& path);

}  // namespace runenv
