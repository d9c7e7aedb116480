// A file that appears under its name only when it is complete.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "core/owner.h"
#include "fs/path.h"

namespace runenv {

inline constexpr mode_t kServedMode = 0644;  // mode bits that a web server needs, for `commit`

// A new file that takes its place when it is complete. Until then it has no name, so other users
// cannot open it, and it leaves nothing behind if it is abandoned.
//
// Some file systems, such as NFS, have no files without a name. There, the file has a temporary
// name such as ".runenv-publish#abcdef". The destructor removes it, and so does a signal that ends
// the program. Only one Replacement may exist at a time.
//
// The functions throw Error with the path in front.
class Replacement {
 public:
  // The file will be put at `path`. It is created in the same directory, or in `made_in`, which
  // must be a directory of the same file system.
  explicit Replacement(const fs::path_t& path);
  Replacement(const fs::path_t& path, const fs::path_t& made_in);
  ~Replacement();
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  // Appends the bytes.
  void write(const char* bytes, size_t count);

  // Cuts the file off after the first `size` bytes.
  void truncate(off_t size);

  off_t size() const;

  // Returns `count` bytes of the content at `offset`, or fewer at its end.
  std::string read(off_t offset, size_t count) const;

  // Returns the file descriptor, open for reading and appending. This object owns it.
  int descriptor() const { return file.get(); }

  // Returns a path that opens this file in this process. A child can be redirected to it.
  std::string descriptor_path() const;

  // Stores the content on the disk and drops it from the cache, so that later reads use the disk.
  void settle();

  // Stores the file on the disk and puts it in its place. Its mode is that of the file it replaces,
  // or else that of any new file; the bits `at_least` are added. Returns false and changes nothing
  // if a file exists there and `over_existing` is false. After an Error the file is not in place,
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

// Waits for the lock on the directory. The lock lasts until the file descriptor is closed. Returns
// without a lock if the file system has none, like some network file systems.
void lock_directory(int descriptor);

// Stores the names in the directory on the disk. Throws Error with the path in front.
void sync_directory(int descriptor, const fs::path_t& path);

}  // namespace runenv
