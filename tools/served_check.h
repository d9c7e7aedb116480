// Checks a tree that a distribution server serves.
#pragma once

#include <functional>

#include "tools/served_tree.h"

namespace runenv {

// Calls `tell` for each fault in the tree: the findings of the listing, pointers that do not lead
// to an archive, signatures that no machine would accept, unsigned archives of items that also have
// signed ones, and, unless `quick` is set, archives that tar cannot read to the end or that a
// machine could not install. Throws Error if tar cannot be run.
void check_tree(const ServedTree& tree, const Listing& listing, bool quick,
                const std::function<void(const Finding&)>& tell);

}  // namespace runenv
