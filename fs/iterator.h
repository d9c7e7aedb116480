// Iterates over the entries of one directory, in the order in which the system returns them:
//
//   for (fs::iterator_t entry("directory", false); entry.has_item(); entry.move_next()) {
//     std::puts(entry.get_name());
//   }
#pragma once

#include <memory>

#include "fs/path.h"

namespace fs {

struct _impl_t;

class iterator_t final {
 public:
  // Starts at the first entry. Skips "." and ".." and, without `include_hidden`, all other names
  // that begin with ".". A directory that cannot be opened has no entries.
  iterator_t(path_t dir, bool include_hidden);
  ~iterator_t();
  iterator_t(const iterator_t&) = delete;
  iterator_t& operator=(const iterator_t&) = delete;

  // Returns true if there is a current entry.
  bool has_item() const;

  // Return the name of the current entry, valid until move_next, and its path. Throw Error past the
  // end.
  const char* get_name() const;
  path_t get_path() const;

  // Moves to the next entry. Does nothing past the end.
  void move_next();

 private:
  std::unique_ptr<_impl_t> impl;
};

}  // namespace fs
