// One item in the directory tree that a distribution server serves: its releases, each with an
// archive for every platform, and the "latest" pointer, which names the release to install.
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

// Whether the path is an archive with a signature. Does not check who signed it, or for what.
// Throws Error if it cannot be read.
bool is_signed_archive(const fs::path_t& path);

// The functions throw Error.
class ServedItem {
 public:
  // The item's directory is names[0] in the directory `tree`, names[1] in that one, and so on. The
  // tree must exist, the item need not.
  ServedItem(const char* tree, std::vector<std::string> names);

  fs::path_t archive_path(const std::string& release, const std::string& platform) const;

  // The platforms that the release has an archive for.
  std::set<std::string> platforms(const std::string& release) const;

  // The release that the pointer names, as the bootstrapper reads it. None if there is no pointer.
  std::optional<std::string> latest() const;

  // The releases that there are, whether they have archives or not.
  std::set<std::string> releases() const;

  // Makes an archive of the release, and puts it into its place once it is stored and checked. It
  // is signed with the secret key in the file `key`, unless that is null; an archive that is signed
  // already must be signed for this. Returns false if there is an archive by now and `replace` is
  // false. After that, or after an Error, the tree is as it was, unless the message says that the
  // archive is in place.
  bool put_archive(const std::string& release, const std::string& platform, const Making& making,
                   const char* key, bool replace) const;

  // Keeps other publishers of the item from moving the pointer, until the descriptor is closed.
  // Waits for one that does. Without locks, as on some network file systems, it keeps nobody away:
  // two publishers rarely do this at the same moment.
  unique_fd lock() const;

  // Lets the pointer name the release. A reader finds either the old pointer or the new one.
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
