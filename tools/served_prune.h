// Removes old releases from a tree that a distribution server serves.
#pragma once

#include "tools/served_tree.h"

namespace runenv {

struct Pruning {
  unsigned keep = 0;      // the number of newest releases to keep of each item, besides the latest
  double older_than = 0;  // minimum days since a release was published
  double grace = 1;       // minimum days since the pointer was moved and the release was changed
  bool dry_run = false;
};

// Removes old releases of each item and leftovers of interrupted runs. Prints each on standard
// output. If something cannot be removed, prints the error on standard error, goes on, and returns
// false at the end. Throws Error and removes nothing if a finding may hide releases.
bool prune_tree(const ServedTree& tree, const Pruning& pruning);

}  // namespace runenv
