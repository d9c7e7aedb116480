// The archive of a release: packed or copied, and checked before anybody gets it.
#pragma once

#include "fs/path.h"
#include "tools/replacement.h"

namespace runenv {

// Fills the new file `archive` from `source`, a directory to pack or a .tar.gz archive to copy, and
// stores it on the disk. The same files always make the same archive. With `list`, a directory is
// packed with a list of its files in it. Throws Error if any of that
// fails, if a copy reads differently, or if tar cannot read the archive or finds no file in it.
void make_archive(const fs::path_t& source, bool list, Replacement* archive);

}  // namespace runenv
