// Sizes and counts for people.
#pragma once

#include <cstdint>
#include <string>

namespace runenv {

// Such as "512 B", "1.5 kB" or "23 MB": two digits or more, in steps of a thousand.
std::string size_text(uint64_t bytes);

// Such as "1 release" or "2 releases".
std::string count_text(size_t count, const std::string& noun);

}  // namespace runenv
