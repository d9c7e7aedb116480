// Packs a directory into the archive of a release.
#pragma once

#include <cstdint>

#include "tools/archive.h"
#include "tools/replacement.h"

namespace runenv {

// Runs tar to pack the directory making.source into the new file `archive`. `bytes` is the size of
// the directory's files, for the progress. In the archive, the entries are sorted and belong to the
// user and group 0, and the release's own directory has mode 0755. Throws Error.
void pack(const Making& making, uint64_t bytes, const Replacement& archive);

}  // namespace runenv
