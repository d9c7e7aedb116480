// Internal: creating and removing whole directory trees, for both file interfaces of this folder.
#pragma once

#include <cstddef>
#include <string_view>

namespace runenv {

// The mode of new directories, before the umask is applied.
constexpr unsigned kDirectoryMode = 0777;

// Returns the length of the part of `path` to look at when missing directories are created. It is
// the whole path, or the shortest ancestor that exceeds the system's limit: creating that one fails
// in any case. This bounds the work for a path of any length.
size_t creatable_length(std::string_view path);

// Removes `path` and everything below it, children first. Does not follow links and does not cross
// mount points. Returns 0, or stops at the first failure and returns non-zero with errno set.
int remove_tree(const char* path);

}  // namespace runenv
