// The run-time environment on the disk of a machine. The directory "runenv" has a directory for
// each item, which has the local pointer "latest" and a directory for each release.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/error.h"
#include "core/owner.h"

namespace runenv {

inline constexpr off_t kPointerLimit = 1 << 20;  // bytes; a larger file is not a pointer

// Thrown if the path of an item leads out of the environment or is not a directory.
struct OddItem : Error {
  using Error::Error;
};

// The directory of a release in an item's directory.
struct Release {
  std::string name;
  timespec changed;  // when the directory was made or moved to its place
};

// The directory of an item. It is opened once, without following a link below "runenv", so it
// stays the same even if its path is replaced. The functions throw Error with the path in front.
class LocalItem {
 public:
  // `root` is a file descriptor of the directory "runenv". `item` is a path below it, such as
  // "platform/5". Throws OddItem if ".." or a link is in the path, or if it leads to a file.
  LocalItem(int root, const std::string& item);

  // Returns whether the directory exists. The functions below require this.
  bool exists() const { return directory.get() >= 0; }
  int descriptor() const { return directory.get(); }

  // Waits for the lock on the pointer, which the bootstrapper takes with --lock-latest, and keeps
  // it as long as this object exists. Returns false if there is no pointer.
  bool lock();

  // Returns the release that the pointer names. Returns nothing if there is no pointer. Also
  // returns nothing, and sets `problem`, unless the pointer is a file that names a directory beside
  // it.
  std::optional<std::string> current(std::string* problem) const;

  // Returns the time when the pointer was written, or 0 if there is none.
  std::time_t switched() const;

  // Returns the releases beside the pointer in order of name: all directories, except those with a
  // pointer of their own, which are items, and those with a "#" in the name, which are temporary.
  std::vector<Release> releases() const;

  // Returns the names of temporary entries: leftovers, and those of programs that still run.
  std::vector<std::string> leftovers() const;

  // Returns a path that opens the entry `name` of this directory.
  std::string path_of(const std::string& name) const;

 private:
  std::string shown;  // in messages
  unique_fd directory;
  unique_fd pointer;  // open while it is locked
};

// Opens the directory "runenv" in `directory`; "" is the working directory. Throws Error.
unique_fd open_environment(const std::string& directory);

// Returns whether `directory` has an entry "runenv". Throws Error if this cannot be found out, for
// example because `directory` does not exist.
bool has_environment(const std::string& directory);

// Returns the paths of the items `listed` and of all directories above them, in the form in which
// items_present returns paths.
std::set<std::string> wanted_directories(const std::vector<std::string>& listed);

// Returns the paths of all items in the environment, such as "platform/5", in order of name.
std::vector<std::string> items_present(int root);

// Returns the directories that contain items, "platform" and those such as "system-types/linker",
// in order of name.
std::vector<std::string> parents_of_items(int root);

}  // namespace runenv
