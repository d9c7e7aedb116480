// A file that appears under its name only when it is complete.
#pragma once

#include <cstddef>
#include <string>

#include "core/owner.h"

namespace runenv {

// A new file that has no name until it takes its place: nobody else can reach it, and nothing of it
// is left if it never does. On a file system without such files it has a name that begins with "."
// and holds a "#", which is removed if it never does, also when a signal ends the program. One at a
// time. What fails throws Error, naming the path.
class Replacement {
 public:
  // Made beside the file whose place it is to take, or in another directory of that file system.
  explicit Replacement(const std::string& path, const std::string& made_in = "");
  ~Replacement();
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  // Opens this very file, whatever bears its name meanwhile. Only this process may use it.
  std::string descriptor_path() const;

  void write(const char* bytes, size_t count);

  // Stores the content on the disk, from where it is read back after this.
  void settle();

  // Puts the file in its place and stores that on the disk too. It gets the permissions of the file
  // that was there, or those of any new file. Returns false if, without `over_existing`, there is
  // a file by now. An Error means that it is not in place, unless the message says that it is.
  bool commit(bool over_existing);

 private:
  template <typename Make>
  void take_name(const std::string& made_in, Make make);
  bool put_in_place(int place, const char* name, bool over_existing);

  std::string target;
  std::string directory;
  std::string temporary;  // the name until it takes its place; empty: none
  unique_fd file;
};

// The directory, opened for reading. Throws Error.
unique_fd open_directory(const std::string& path);

// Stores the entries of the directory on the disk. Throws Error, naming the path.
void sync_directory(int descriptor, const std::string& path);

}  // namespace runenv
