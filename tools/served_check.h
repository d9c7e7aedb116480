// Checking a tree that a distribution server serves.
#pragma once

#include <functional>

#include "tools/served_tree.h"

namespace runenv {

// Calls `tell` with all that is wrong in the tree: with the findings of its listing, with pointers
// that lead to no archive, with signatures, in the items that have any, and, unless it is to be
// quick, with archives that tar cannot read to their end. Throws Error if tar cannot be run.
void check_tree(const ServedTree& tree, const Listing& listing, bool quick,
                const std::function<void(const Finding&)>& tell);

}  // namespace runenv
