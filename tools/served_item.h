// An item in the directory tree that a distribution server serves. It has releases, each with an
// archive for every platform, and the pointer "latest", which names the release to install.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/owner.h"
#include "fs/path.h"
#include "tools/archive.h"
#include "tools/signature.h"

namespace runenv {

// Returns whether the file is an archive with a signature. Does not check the signature. Throws
// Error if the file cannot be read.
bool is_signed_archive(const fs::path_t& path);

// The functions throw Error.
class ServedItem {
 public:
  // `names` are the components of the item's path below the directory `tree`. The tree must exist;
  // the item may be missing.
  ServedItem(const char* tree, std::vector<std::string> names);

  fs::path_t archive_path(const std::string& release, const std::string& platform) const;

  // Returns the platforms for which the release has an archive.
  std::set<std::string> platforms(const std::string& release) const;

  // Returns the release that the pointer names, as the bootstrapper would read it. Returns nothing
  // if there is no pointer.
  std::optional<std::string> latest() const;

  // Returns all releases, with or without archives.
  std::set<std::string> releases() const;

  // Makes an archive of the release, checks it, stores it on the disk and puts it in its place.
  // Signs it with the secret key in the file `key`. If `key` is null, the archive may be signed
  // already, but then it must be signed for this item, release and platform. Returns false if an
  // archive exists and `replace` is false. After that, or after an Error, the tree is unchanged,
  // unless the message says that the archive is in place.
  bool put_archive(const std::string& release, const std::string& platform, const Making& making,
                   const char* key, bool replace) const;

  // Waits for the item's lock, which prevents other publishers from moving the pointer. The lock
  // lasts until the descriptor is closed. File systems without locks, such as some network file
  // systems, give no such protection. This is accepted, since such a collision is rare.
  unique_fd lock() const;

  // Moves the pointer to the release. A reader finds either the old pointer or the new one.
  void point_at(const std::string& release) const;

 private:
  fs::path_t path() const;
  fs::path_t pointer_path() const;
  fs::path_t release_path(const std::string& release) const;
  Purpose purpose(const std::string& release, const std::string& platform) const;

  const fs::path_t tree;
  const std::vector<std::string> names;
};

}  // namespace runenv
