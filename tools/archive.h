// The archive of a release: packed or copied, and checked before anybody gets it.
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
// programs, always make the same archive. Shows how far it is if standard error is a terminal.
// Throws Error if any of that fails, if a copy reads differently, if tar cannot read the archive or
// finds no file in it, or if the content is refused (see ContentCheck).
void make_archive(const Making& making, Replacement* archive);

// Has tar list the archive that can be opened at the path `file`, to its end, and `content` take
// each entry. `subject` stands for the archive in messages. Calls `tick`, if there is one, as
// run_tool does. Throws Error as ContentCheck, or if tar cannot read all of the archive or finds
// nothing in it, or if a client's tar would not take it for gzip's format.
void read_archive(const std::string& file, const fs::path_t& subject, ContentCheck* content,
                  const std::function<void(pid_t)>& tick = {});

}  // namespace runenv
