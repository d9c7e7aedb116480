// Directories and whole trees of them. Nothing below the given path is reached by a link.
#pragma once

#include <fts.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace runenv {

// Opens what is at `path` in or below the directory `root`, with O_CLOEXEC besides the `flags`.
// Returns a descriptor, or -1 with errno: EXDEV if the path leads out of it, ELOOP if over a link.
int open_below(int root, const char* path, int flags);

// A path that opens the descriptor, in this process and its children.
std::string descriptor_path(int descriptor);

// Where temporary files go, TMPDIR or /tmp, without links.
std::string temporary_directory();

// The names in the directory, sorted. None if it cannot be read.
std::vector<std::string> names_in(const std::string& directory);

// Calls `visit` with each entry of the tree at `path`, which begins with it; directories come
// before what is in them, and after it. Returns false, with errno, if the tree could not be gone
// through. An entry that could not be looked at says so itself.
bool walk_tree(const std::string& path, const std::function<void(const FTSENT&)>& visit);

// The target of a symbolic link that walk_tree visits. None, with errno, if it cannot be read.
std::optional<std::string> link_target(const FTSENT& entry);

// How many bytes of the disk the tree takes. What has several names in it counts once. What cannot
// be looked at counts nothing.
uint64_t size_on_disk(const std::string& path);

// Removes the tree, also directories that forbid their owner to change them. What is mounted in it
// stays, with the directories around it. Changes the working directory meanwhile. Returns 0, or -1
// with the errno of the first entry that stays.
int remove_whole_tree(const std::string& path);

// Whether a link in a directory `depth` levels below the release's leads to somewhere in the
// release. That is so if it goes up at its start alone, and not beyond the release: going down, it
// meets directories and other links that stay.
bool stays_inside(std::string_view link, int depth);

}  // namespace runenv
