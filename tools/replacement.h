// A file that appears under its name only when it is complete.
#pragma once

#include <cstddef>
#include <string>

#include "core/unique_fd.h"

// A new file beside the one whose place it is to take, under a name that begins with "." and holds
// a "#". Destroyed, or the program ended by a signal, it is gone again unless it took that place.
// One at a time. What fails throws Error, naming the path.
class Replacement {
 public:
  explicit Replacement(const std::string& path);
  ~Replacement();
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  // Where the content is to be written meanwhile.
  const char* temporary_path() const { return temporary.c_str(); }

  void write(const char* bytes, size_t count);

  // Stores the content on the disk, from where it is read back after this.
  void settle();

  // Puts the file in its place and stores that on the disk too. It gets the permissions of the file
  // that was there, or those of any new file. Without `over_existing`, a file that is there by now
  // is a failure.
  void commit(bool over_existing);

 private:
  std::string target;
  std::string directory;
  std::string temporary;
  unique_fd file;
};

// Stores the entries of a directory on the disk. Throws Error.
void sync_directory(const std::string& path);
