// Internal: making and removing whole directory trees, which both file interfaces of this folder
// share.
#pragma once

#include <cstddef>
#include <string_view>

namespace runenv {

// What mkdir is asked for; the umask applies.
constexpr unsigned kDirectoryMode = 0777;

// The length of the part of `path` with which creating its chain of directories begins: all of it,
// or the shortest ancestor that the system refuses for its length alone. Creating never gets beyond
// that one, so beginning there bounds the work, whatever the length of the path.
size_t creatable_length(std::string_view path);

// Removes everything below `path` and `path` itself, children first, without following links or
// crossing mount points. Returns 0, or non-zero with errno at the first entry that stays.
int remove_tree(const char* path);

}  // namespace runenv
