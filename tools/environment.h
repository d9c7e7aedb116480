// The run-time environment of a machine, as it lies on the disk: a directory "runenv" with a
// directory for each item. That has the local pointer "latest" and a directory for each release.
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

inline constexpr off_t kPointerLimit = 1 << 20;  // bytes; a larger file is no pointer

// Thrown for an item that leads out of the environment, or is no directory.
struct OddItem : Error {
  using Error::Error;
};

// What an item's directory holds besides its pointer.
struct Release {
  std::string name;
  timespec changed;  // when the directory was made or moved to its place
};

// One item's directory. It is reached without following a link below "runenv", and stays the same
// directory whatever happens to its path. The functions throw Error with the path in front.
class LocalItem {
 public:
  // `root` is a descriptor of the directory "runenv", `item` a path below it, such as "platform/5".
  // Throws OddItem if the path leads anywhere else, through ".." or a link, or to a file.
  LocalItem(int root, const std::string& item);

  // Whether there is such a directory. The functions below need it.
  bool exists() const { return directory.get() >= 0; }
  int descriptor() const { return directory.get(); }

  // Takes the lock that a run of the bootstrapper takes with --lock-latest, and waits for it. It
  // lasts as long as this object. Returns false if there is no pointer to lock.
  bool lock();

  // The release that the pointer names. None if there is no pointer, or if it is not a file or is
  // empty or names anything but a directory beside it; then `problem` says what is wrong.
  std::optional<std::string> current(std::string* problem) const;

  // When the pointer was written.
  std::time_t switched() const;

  // The directories beside the pointer that are releases, in order of name: not links, not items
  // themselves, and nothing with a "#" in its name, which is what programs leave.
  std::vector<Release> releases() const;

  // What programs have left there, or are at work on.
  std::vector<std::string> leftovers() const;

  // The path of an entry, for the functions of the C library.
  std::string path_of(const std::string& name) const;

 private:
  std::string shown;  // in messages
  unique_fd directory;
  unique_fd pointer;  // when it is locked
};

// Opens the directory "runenv" in `directory`; empty is the working directory. Throws Error.
unique_fd open_environment(const std::string& directory);

// Whether there is something called "runenv" in `directory`. Throws Error if nobody can tell, as
// where `directory` itself is missing.
bool has_environment(const std::string& directory);

// The items `listed` and all directories above them, by the names that items_present gives them.
std::set<std::string> wanted_directories(const std::vector<std::string>& listed);

// The items that are there, whether anybody wants them or not, in order of name.
std::vector<std::string> items_present(int root);

// The directories that items lie in, "platform" and such as "system-types/linker", in order of
// name.
std::vector<std::string> parents_of_items(int root);

}  // namespace runenv
