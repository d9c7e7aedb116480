// Walks the entries of one directory, in the order in which the system lists them.
#pragma once

#include <memory>

#include "fs/path.h"

namespace fs {

struct _impl_t;

class iterator_t final {
 public:
  // Stands at the first entry. "." and ".." are never listed; other names that begin with "." only
  // with `include_hidden`. A directory that cannot be opened has no entries.
  iterator_t(path_t dir, bool include_hidden);
  ~iterator_t();
  iterator_t(const iterator_t&) = delete;
  iterator_t& operator=(const iterator_t&) = delete;

  // True while there is a current entry.
  bool has_item() const;

  // The current entry's name, valid until move_next, and its path. Throw Error past the end.
  const char* get_name() const;
  path_t get_path() const;

  // Moves on to the next entry; past the end it stays there.
  void move_next();

 private:
  std::unique_ptr<_impl_t> impl;
};

}  // namespace fs
