#include "fs/iterator.h"

#include <dirent.h>

#include <cstring>
#include <utility>

#include "core/failure.h"
#include "core/owner.h"

namespace fs {

struct _impl_t {
  path_t path;
  bool skip_hidden;
  runenv::owner<DIR, closedir> handle;  // null if the directory could not be opened
  dirent* entry;                        // owned by the handle; null past the end

  bool is_listed() const {
    const char* const name = entry->d_name;
    if (skip_hidden) {
      return name[0] != '.';
    }
    return std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0;
  }

  void read_next() {
    do {
      entry = readdir(handle.get());
    } while (entry != nullptr && !is_listed());
  }

  void require_entry() const {
    if (entry == nullptr) {
      runenv::throw_failure("Directory iterator is past end");
    }
  }
};

iterator_t::iterator_t(path_t dir, bool include_hidden)
    : impl(new _impl_t{.path = std::move(dir),
                       .skip_hidden = !include_hidden,
                       .handle = nullptr,
                       .entry = nullptr}) {
  impl->handle.reset(opendir(impl->path.cstring()));
  if (impl->handle != nullptr) {
    impl->read_next();
  }
}

iterator_t::~iterator_t() = default;

bool iterator_t::has_item() const {
  return impl->entry != nullptr;
}

const char* iterator_t::get_name() const {
  impl->require_entry();
  return impl->entry->d_name;
}

path_t iterator_t::get_path() const {
  impl->require_entry();
  path_t path = impl->path;
  path.join(impl->entry->d_name);
  return path;
}

void iterator_t::move_next() {
  if (has_item()) {
    impl->read_next();
  }
}

}  // namespace fs
