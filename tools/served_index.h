// What a tree that a distribution server serves holds, for programs and as a page for people. The
// same tree always makes the same bytes.
#pragma once

#include <string>

#include "tools/served_tree.h"

namespace runenv {

// One JSON object, as runenv-served(1) describes it, indented by so many blanks, on one line if
// negative. Bytes that are no UTF-8 are replaced.
std::string to_json(const Listing& listing, int indent);

// The page. Of items with many releases it shows the newest only.
std::string to_page(const Listing& listing);

}  // namespace runenv
