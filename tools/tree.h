// Reads and removes directories and directory trees. The walks follow no symbolic link.
#pragma once

#include <fts.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace runenv {

// Opens `path` below the directory `root` with the `flags` and O_CLOEXEC. Returns a file
// descriptor, or -1 with errno: EXDEV if the path leads out of `root`, ELOOP if a symbolic link is
// in the path.
int open_below(int root, const char* path, int flags);

// Returns a path that opens the descriptor's file, in this process and its children.
std::string descriptor_path(int descriptor);

// Returns the temporary directory, TMPDIR or /tmp, without symbolic links in its path.
std::string temporary_directory();

// Returns the sorted names in the directory, or no names if it cannot be read.
std::vector<std::string> names_in(const std::string& directory);

// Calls `visit` for each entry of the tree, from `path` itself on. A directory is visited twice:
// before its content and after it. If an entry cannot be examined, its fts_info says so and the
// walk goes on. Returns false, with errno, if the walk fails.
bool walk_tree(const std::string& path, const std::function<void(const FTSENT&)>& visit);

// Returns the target of a symbolic link that walk_tree visits. Returns nothing, with errno, if the
// link cannot be read.
std::optional<std::string> link_target(const FTSENT& entry);

// Returns the size on disk of the tree, in bytes. A file with several names counts once. An entry
// that cannot be examined counts as 0.
uint64_t size_on_disk(const std::string& path);

// Removes the tree, including directories that their owner cannot write. Leaves mount points and
// the directories that contain them. Changes the working directory during the walk. Returns 0, or
// -1 with the errno of the first entry that could not be removed.
int remove_whole_tree(const std::string& path);

// Returns whether a symbolic link stays inside the release. `link` is its target, `depth` the depth
// of its directory below the release's directory. The target must be relative, have ".." only at
// its start, and at most `depth` times. The rest only passes directories and other links that stay.
bool stays_inside(std::string_view link, int depth);

}  // namespace runenv
