// Describes the content of a served tree as JSON for programs and as a page for people. The same
// tree always makes the same bytes.
#pragma once

#include <string>

#include "tools/served_tree.h"

namespace runenv {

// Returns one JSON object in the format that runenv-served(1) describes. `indent` is the number of
// blanks for each level; if it is negative, the object is one line. Bytes that are not UTF-8 are
// replaced.
std::string to_json(const Listing& listing, int indent);

// Returns the HTML page. If an item has many releases, the page shows only the newest ones.
std::string to_page(const Listing& listing);

}  // namespace runenv
