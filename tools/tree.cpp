#include "tools/tree.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <set>
#include <utility>

#include "core/owner.h"
#include "fs/iterator.h"
#include "fs/path.h"

namespace runenv {

// Does the same as open_below, but opens one component after another.
static int open_step_by_step(int root, std::string_view path, int flags) {
  unique_fd directory;
  for (int at = root;; at = directory.get()) {
    const size_t end = std::min(path.find('/'), path.size());
    const std::string name(path.substr(0, end));
    path.remove_prefix(std::min(end + 1, path.size()));
    if (name.empty() || name == "..") {
      errno = EXDEV;
      return -1;
    }
    if (path.empty()) {
      return openat(at, name.c_str(), flags | O_CLOEXEC | O_NOFOLLOW);
    }
    unique_fd next(openat(at, name.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
    if (next.get() < 0) {
      return -1;
    }
    directory = std::move(next);
  }
}

int open_below(int root, const char* path, int flags) {
  open_how how{};
  how.flags = static_cast<uint64_t>(flags | O_CLOEXEC);
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
  const auto descriptor = static_cast<int>(syscall(SYS_openat2, root, path, &how, sizeof how));
  // systemd's RestrictSUIDSGID= blocks this call, and so may system call filters that do not know
  // it.
  return descriptor < 0 && (errno == ENOSYS || errno == EPERM)
             ? open_step_by_step(root, path, flags)
             : descriptor;
}

std::string descriptor_path(int descriptor) {
  return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(descriptor);
}

std::string temporary_directory() {
  const char* const variable = std::getenv("TMPDIR");
  return fs::path_t(variable != nullptr && *variable != '\0' ? variable : "/tmp")
      .real_path()
      .cstring();
}

std::vector<std::string> names_in(const std::string& directory) {
  std::vector<std::string> result;
  for (fs::iterator_t entry(directory.c_str(), true); entry.has_item(); entry.move_next()) {
    result.emplace_back(entry.get_name());
  }
  std::sort(result.begin(), result.end());
  return result;
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

std::optional<std::string> link_target(const FTSENT& entry) {
  char target[PATH_MAX];
  const ssize_t size = readlink(entry.fts_accpath, target, sizeof target);
  return size < 0 ? std::nullopt : std::optional(std::string(target, static_cast<size_t>(size)));
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

// Returns whether it is a mount point, even of a bind mount from the same file system.
static bool is_mount_point(int descriptor) {
  struct statx status;
  return statx(descriptor, "", AT_EMPTY_PATH, 0, &status) == 0 &&
         (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

// Makes the directory writable for its owner. Returns false if it cannot be opened or is a mount
// point.
static bool open_for_removal(const FTSENT& entry) {
  const unique_fd directory(open(entry.fts_accpath, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (directory.get() < 0 || is_mount_point(directory.get())) {
    return false;
  }
  if ((entry.fts_statp->st_mode & S_IRWXU) != S_IRWXU) {
    chmod(descriptor_path(directory.get()).c_str(), S_IRWXU);
  }
  return true;
}

// Returns 0 or the error.
static int remove_entry(FTS* tree, FTSENT* entry) {
  switch (entry->fts_info) {
    case FTS_D:
      if (!open_for_removal(*entry)) {
        fts_set(tree, entry, FTS_SKIP);  // skips only its content: FTS_DP comes next
      }
      return 0;
    case FTS_ERR:
    case FTS_NS:
      return entry->fts_errno;
    case FTS_DP:
    case FTS_DNR:
      return rmdir(entry->fts_accpath) == 0 ? 0 : errno;
    default:
      return unlink(entry->fts_accpath) == 0 ? 0 : errno;
  }
}

int remove_whole_tree(const std::string& path) {
  std::string root = path;
  char* const roots[] = {root.data(), nullptr};
  // fts changes the working directory and detects if a directory was replaced meanwhile.
  const owner<FTS, fts_close> tree(fts_open(roots, FTS_PHYSICAL | FTS_XDEV, nullptr));
  if (tree == nullptr) {
    return -1;
  }
  int problem = 0;
  for (errno = 0; FTSENT* entry = fts_read(tree.get()); errno = 0) {
    const int error = remove_entry(tree.get(), entry);
    problem = problem == 0 ? error : problem;
  }
  errno = problem == 0 ? errno : problem;
  return errno == 0 ? 0 : -1;
}

bool stays_inside(std::string_view link, int depth) {
  if (link.starts_with('/')) {
    return false;
  }
  bool goes_down = false;
  while (!link.empty()) {
    const std::string_view name = link.substr(0, link.find('/'));
    if (name == "..") {
      if (goes_down || --depth < 0) {
        return false;
      }
    } else if (!name.empty() && name != ".") {
      goes_down = true;
    }
    link.remove_prefix(std::min(name.size() + 1, link.size()));
  }
  return true;
}

}  // namespace runenv
