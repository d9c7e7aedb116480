// Packing a directory into the archive of a release.
#pragma once

#include <cstdint>

#include "tools/archive.h"
#include "tools/replacement.h"

namespace runenv {

// Has tar fill the new file `archive` with the directory making.source, of which `bytes` says how
// much its files hold. The files are sorted and without the names of users; the release's own
// directory has mode 0755. Throws Error.
void pack(const Making& making, uint64_t bytes, const Replacement& archive);

}  // namespace runenv
