// A file that appears under its name only when it is complete.
#pragma once

#include <cstddef>
#include <string>

#include "core/owner.h"

// A new file under a name that begins with "." and holds a "#". Destroyed, or the program ended by
// a signal, it is gone again unless it took its place. One at a time. What fails throws Error,
// naming the path.
class Replacement {
 public:
  // Made beside the file whose place it is to take, or in another directory of that file system.
  explicit Replacement(const std::string& path, const std::string& made_in = "");
  ~Replacement();
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  // Where the content is to be written meanwhile.
  const char* temporary_path() const { return temporary.c_str(); }

  void write(const char* bytes, size_t count);

  // Stores the content on the disk, from where it is read back after this.
  void settle();

  // Puts the file in its place and stores that on the disk too. It gets the permissions of the file
  // that was there, or those of any new file. Answers false if, without `over_existing`, there is
  // a file by now.
  bool commit(bool over_existing);

 private:
  std::string target;
  std::string directory;
  std::string temporary;
  runenv::unique_fd file;
};

// The directory, opened for reading. Throws Error.
runenv::unique_fd open_directory(const std::string& path);

// Stores the entries of a directory on the disk. Throws Error.
void sync_directory(const std::string& path);
