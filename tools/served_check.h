// Checking a tree that a distribution server serves.
#pragma once

#include <functional>

#include "tools/served_tree.h"

namespace runenv {

// Calls `tell` with each thing that is wrong in the tree: the findings of its listing, pointers
// that lead to no archive, signatures that no machine would accept, in items with signed archives
// those that are not signed, and, unless it is to be quick, archives that tar cannot read to their
// end or that a machine could not install. Throws Error if tar cannot be run.
void check_tree(const ServedTree& tree, const Listing& listing, bool quick,
                const std::function<void(const Finding&)>& tell);

}  // namespace runenv
