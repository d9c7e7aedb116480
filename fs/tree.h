// Internal: making and removing whole directory trees, which both file interfaces of this folder
// share.
#pragma once

#include <cstddef>
#include <string_view>

namespace runenv {

// What mkdir is asked for; the umask applies.
constexpr unsigned kDirectoryMode = 0777;

// How many bytes of `path` to look at when its missing directories are created: all, or those of
// the shortest ancestor that is too long for the system. Creating fails there at the latest, so
// this bounds the work for a path of any length.
size_t creatable_length(std::string_view path);

// Removes everything below `path` and `path` itself, children first, without following links or
// crossing mount points. Returns 0, or non-zero with errno at the first entry that stays.
int remove_tree(const char* path);

}  // namespace runenv
