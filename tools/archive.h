// The archive of a release: packed or copied, and checked before anybody gets it.
#pragma once

#include "fs/path.h"
#include "tools/replacement.h"

namespace runenv {

// How the archive of a release is made.
struct Making {
  const char* source = nullptr;  // a directory to pack or a .tar.gz archive to copy
  const char* compress =
      nullptr;         // a program that makes gzip's format, and its options; null: gzip
  bool as_is = false;  // whether what is hardly meant is published all the same
  bool list = false;   // whether a list of its files is packed with a directory
};

// The permissions of a release's own directory, in the archive of a directory that was packed.
inline constexpr mode_t kReleaseMode = 0755;

// Fills the new file `archive` and stores it on the disk. The same files, packed by the same
// programs, always make the same archive. Shows how far it is if standard error is a terminal.
// Throws Error if any of that fails, if a copy reads differently, if tar cannot read the archive or
// finds no file in it, or if the content cannot be meant (see ContentCheck).
void make_archive(const Making& making, Replacement* archive);

}  // namespace runenv
