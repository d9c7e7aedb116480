// A directory that is packed together with a list of its files.
#pragma once

#include <string>
#include <vector>

#include "core/owner.h"
#include "fs/path.h"
#include "tools/file_scan.h"

namespace runenv {

// A new file in the directory for temporary ones. The destructor removes it, and so does a signal
// that ends the program. Only one may exist at a time.
class TemporaryFile {
 public:
  TemporaryFile();
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  std::string directory;  // without links
  std::string path;
  unique_fd descriptor;
};

// A directory and, in a temporary file, the list of its files as they are at the construction.
class ListedSource {
 public:
  // Throws Error if the directory cannot be read, or has something in it that cannot be listed.
  explicit ListedSource(const fs::path_t& source);

  // The words that make tar pack the list too, if they follow those for the directory.
  const std::vector<std::string>& words() const { return tar_words; }

  // Throws Error if the directory has changed since the construction.
  void check() const;

 private:
  void scan_source();
  void write_list() const;

  const fs::path_t source;
  const unique_fd directory;
  Scan scan;
  const TemporaryFile file;
  std::vector<std::string> tar_words;
};

}  // namespace runenv
