// Sizes and counts as text for people.
#pragma once

#include <cstdint>
#include <string>

namespace runenv {

// Returns a text such as "512 B", "1.5 kB" or "23 MB". The units are powers of 1000.
std::string size_text(uint64_t bytes);

// Returns a text such as "1 release" or "2 releases".
std::string count_text(size_t count, const std::string& noun);

}  // namespace runenv
