// Removing a whole directory tree; what both file interfaces of this folder share.
#pragma once

namespace fs {

// Removes everything below `path` and `path` itself, children first, without following links or
// crossing mount points. Stops at the first entry that cannot be removed: non-zero with errno.
int remove_tree(const char* path);

}  // namespace fs
