#include "fs/tree.h"

#include <ftw.h>

#include <algorithm>
#include <climits>
#include <cstdio>

namespace runenv {

size_t creatable_length(std::string_view path) {
  return std::min(path.size(), path.find('/', PATH_MAX));
}

static int remove_entry(const char* path, const struct stat*, int, FTW*) {
  return std::remove(path);
}

int remove_tree(const char* path) {
  static constexpr int kOpenDescriptors = 32;
  return nftw(path, remove_entry, kOpenDescriptors, FTW_DEPTH | FTW_PHYS | FTW_MOUNT);
}

}  // namespace runenv
