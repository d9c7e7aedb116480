// Makes the archive of a release by packing or copying, and checks it.
#pragma once

#include <functional>

#include "fs/path.h"
#include "tools/content.h"
#include "tools/replacement.h"

namespace runenv {

// How the archive of a release is made.
struct Making {
  const char* source = nullptr;    // a directory to pack or a .tar.gz archive to copy
  const char* compress = nullptr;  // a program that writes gzip's format, with options; null: gzip
  bool as_is = false;              // whether to publish content that looks like a mistake
  bool is_signed = false;          // whether runenv-verify has to accept the content
  bool list = false;               // whether a list of its files is packed with a directory
};

// The permissions of a release's own directory, in the archive of a directory that was packed.
inline constexpr mode_t kReleaseMode = 0755;

// Fills the new file `archive` and stores it on the disk. The same files, packed by the same
// programs, always make the same archive. Shows the progress if standard error is a terminal.
// Throws Error if any of that fails, if a copy differs from its source, if tar cannot read the
// archive or finds nothing in it, or if ContentCheck refuses the content.
void make_archive(const Making& making, Replacement* archive);

// Runs tar to list the whole archive at the path `file`, and passes each entry to `content`.
// Messages name the archive `subject`. run_tool calls `tick` if it is not empty. Throws Error if
// `content` does, if tar cannot read the whole archive or finds nothing in it, or if the archive is
// not in gzip's format, which a client's tar expects.
void read_archive(const std::string& file, const fs::path_t& subject, ContentCheck* content,
                  const std::function<void(pid_t)>& tick = {});

}  // namespace runenv
