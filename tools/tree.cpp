#include "tools/tree.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <set>
#include <utility>

#include "core/owner.h"
#include "fs/tree.h"

namespace runenv {

int open_below(int root, const char* path, int flags) {
  open_how how{};
  how.flags = static_cast<uint64_t>(flags | O_CLOEXEC);
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
  return static_cast<int>(syscall(SYS_openat2, root, path, &how, sizeof how));
}

std::string descriptor_path(int descriptor) {
  return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(descriptor);
}

bool walk_tree(const std::string& path, const std::function<void(const FTSENT&)>& visit) {
  std::string root = path;
  char* const roots[] = {root.data(), nullptr};
  const owner<FTS, fts_close> tree(fts_open(roots, FTS_PHYSICAL | FTS_NOCHDIR, nullptr));
  if (tree == nullptr) {
    return false;
  }
  for (errno = 0; const FTSENT* entry = fts_read(tree.get()); errno = 0) {
    visit(*entry);
  }
  return errno == 0;
}

uint64_t size_on_disk(const std::string& path) {
  static constexpr uint64_t kBlock = 512;
  uint64_t bytes = 0;
  std::set<std::pair<dev_t, ino_t>> counted;
  walk_tree(path, [&](const FTSENT& entry) {
    if (entry.fts_info == FTS_DP || entry.fts_info == FTS_NS || entry.fts_info == FTS_ERR) {
      return;
    }
    const struct stat& status = *entry.fts_statp;
    if (status.st_nlink == 1 || entry.fts_info == FTS_D ||
        counted.insert({status.st_dev, status.st_ino}).second) {
      bytes += static_cast<uint64_t>(status.st_blocks) * kBlock;
    }
  });
  return bytes;
}

int remove_whole_tree(const std::string& path) {
  walk_tree(path, [](const FTSENT& entry) {
    if (entry.fts_info == FTS_D) {
      chmod(entry.fts_path, S_IRWXU);
    }
  });
  return remove_tree(path.c_str());
}

}  // namespace runenv
