// Fetches many pointers from the distribution server at once.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace runenv {

// Returns, in the order of the items, the releases that the server's pointers name, or nothing for
// an item whose pointer could not be fetched. Runs curl once for all items, with the user's own
// configuration file. Prints failures on standard error, also if curl cannot be run. Throws Error
// if the temporary directory cannot be used.
std::vector<std::optional<std::string>> fetch_pointers(const std::string& base_url,
                                                       const std::vector<std::string>& items);

}  // namespace runenv
