// What is in a release's directory, to compare it with a list or to write one. Follows no link, and
// opens nothing but regular files.
#pragma once

#include <sys/stat.h>

#include <map>
#include <string>
#include <vector>

#include "tools/file_list.h"

namespace runenv {

struct Scan {
  FileList files;                             // all but the list itself; without digests
  std::map<std::string, struct stat> status;  // of each of these
  std::map<std::string, std::string> unread;  // what could not be looked at or read, and why
};

// Looks at all that is in the directory behind the descriptor, and at itself.
Scan scan_files(int directory);

// Whether two looks have seen the same files, and no change of any between them.
bool is_unchanged(const Scan& before, const Scan& after);

// Has sha256sum read the regular files at these paths, and enters the digests of their contents.
// Throws Error if it cannot be run or reads none of them.
void hash_files(int directory, const std::vector<std::string>& paths, Scan* scan);

}  // namespace runenv
