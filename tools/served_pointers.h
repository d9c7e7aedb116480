// Asking the distribution server for many pointers at once.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace runenv {

// The releases that the server names for the items, in their order; none where it could not be
// asked or has no pointer. One curl fetches all of them over one connection, and says on standard
// error what goes wrong, also if it cannot be run. Its own configuration file applies. Throws Error
// if there is no place for what it fetches.
std::vector<std::optional<std::string>> fetch_pointers(const std::string& base_url,
                                                       const std::vector<std::string>& items);

}  // namespace runenv
