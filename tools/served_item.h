// One item in the directory tree that a distribution server serves: its releases, each with an
// archive for every platform, and the "latest" pointer, which names the release to install.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/owner.h"

namespace runenv {

class ServedItem {
 public:
  // The item that `names` lead to from the directory `tree`, which must exist; the item need not.
  // Throws Error.
  ServedItem(const std::string& tree_path, std::vector<std::string> item_names);

  std::string archive_path(const std::string& release, const std::string& platform) const;

  // The platforms that the release has an archive for. Throws Error.
  std::set<std::string> platforms(const std::string& release) const;

  // The release that the pointer names, in the way the bootstrapper reads it; none without pointer.
  std::optional<std::string> latest() const;

  // Puts the archive of a release into its place, made from the directory `source` or copied from
  // the archive `source`, once it is complete, stored and found to be good. Returns false if,
  // without `replace`, there is one by now. Throws Error when any of that fails. Either leaves
  // things as they were, unless the message says that the archive is in place.
  bool put_archive(const std::string& release, const std::string& platform,
                   const std::string& source, bool replace) const;

  // Has other publishers of the item wait until it is closed, for looking at the pointer and moving
  // it. Throws Error.
  unique_fd lock() const;

  // Lets the pointer name the release: a reader finds the old pointer or the new one. Throws Error.
  void point_at(const std::string& release) const;

 private:
  std::string path(const std::string& name) const;

  std::string tree;
  std::vector<std::string> names;
};

}  // namespace runenv
