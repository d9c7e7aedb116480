// Removing old releases from a tree that a distribution server serves.
#pragma once

#include "tools/served_tree.h"

namespace runenv {

struct Pruning {
  unsigned keep = 0;      // so many of the newest releases of each item, beside the one named
  double older_than = 0;  // days since a release was published
  double grace = 1;       // days since the pointer was moved, and since a release was touched
  bool dry_run = false;
};

// Removes releases of each item, and what interrupted runs have left; says so on standard output.
// Returns false if something could not be removed, which is told on standard error. Throws Error,
// with everything still there, if something in the tree may lead to releases unseen.
bool prune_tree(const ServedTree& tree, const Pruning& pruning);

}  // namespace runenv
