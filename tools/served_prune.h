// Removing old releases from a tree that a distribution server serves.
#pragma once

#include "tools/served_tree.h"

namespace runenv {

struct Pruning {
  unsigned keep = 0;      // how many of the newest releases of each item stay, besides the latest
  double older_than = 0;  // days since a release was published
  double grace = 1;       // days since the pointer was moved, and since a release was touched
  bool dry_run = false;
};

// Removes old releases of each item, and what interrupted runs have left. Prints each on standard
// output. Returns false if something could not be removed; standard error tells what. Throws Error
// and removes nothing if there may be releases that the listing does not have.
bool prune_tree(const ServedTree& tree, const Pruning& pruning);

}  // namespace runenv
