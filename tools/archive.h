// The archive of a release: packed by tar, or copied, and checked before anybody gets it.
#pragma once

#include "fs/path.h"
#include "tools/replacement.h"

namespace runenv {

// Fills the new file `archive` with the .tar.gz of what is in the directory `source`. The same
// files always make the same archive. Throws Error.
void pack(const fs::path_t& source, Replacement* archive);

// Fills the new file `archive` with the content of the file `source`, and compares what the disk
// has of it. Throws Error.
void copy(const fs::path_t& source, Replacement* archive);

// Reads the whole archive, which was made from `source`. Throws Error, naming that, unless it is a
// .tar.gz with files that tar can read.
void check_archive(const Replacement& archive, const fs::path_t& source);

}  // namespace runenv
