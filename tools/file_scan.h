// Scans the directory of a release, to compare it with a list or to write one. Follows no symbolic
// link and reads only regular files.
#pragma once

#include <sys/stat.h>

#include <map>
#include <string>
#include <vector>

#include "tools/file_list.h"

namespace runenv {

struct Scan {
  FileList files;                             // all entries except the list itself
  std::map<std::string, struct stat> status;  // of each entry in `files`, by path
  std::map<std::string, std::string> unread;  // why an entry could not be examined or read, by path
};

// Scans the directory behind the file descriptor, including the directory itself. Does not compute
// digests. Throws Error if the walk fails.
Scan scan_files(int directory);

// Returns whether both scans found the same files and no file has changed between them.
bool is_unchanged(const Scan& before, const Scan& after);

// Runs sha256sum on the regular files at `paths` and stores the digests in `scan`. Records each
// file that cannot be read in scan->unread. Throws Error if sha256sum cannot be run or prints no
// digest.
void hash_files(int directory, const std::vector<std::string>& paths, Scan* scan);

}  // namespace runenv
