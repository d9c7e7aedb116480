// Lists the files of a directory, so that the list can be packed with it.
#pragma once

#include <string>
#include <vector>

#include "core/owner.h"
#include "fs/path.h"
#include "tools/file_scan.h"

namespace runenv {

// A new file in the temporary directory. The destructor removes it, and so does a signal that ends
// the program. Only one TemporaryFile may exist at a time.
class TemporaryFile {
 public:
  TemporaryFile();
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  std::string directory;  // the temporary directory, without symbolic links
  std::string path;
  unique_fd descriptor;
};

// A directory, and a temporary file with the list of its files. The constructor writes the list.
class ListedSource {
 public:
  // Throws Error if the directory cannot be read, has a list already, or contains anything but
  // files, directories and symbolic links.
  explicit ListedSource(const fs::path_t& source);

  // Returns the arguments of tar that pack the list. They follow the arguments for the directory.
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
