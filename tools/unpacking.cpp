#include "tools/unpacking.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "fs/iterator.h"
#include "fs/tree.h"
#include "tools/failure.h"
#include "tools/published_name.h"
#include "tools/tree.h"

namespace runenv {

// Opens the directory for this user only. Creates it if it is missing.
static unique_fd open_private(const fs::path_t& path) {
  static constexpr mode_t kPrivate = 0700;
  if (mkdir(path.cstring(), kPrivate) != 0 && errno != EEXIST) {
    throw_errno_of(path.cstring());
  }
  unique_fd directory(open(path.cstring(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (directory.get() < 0 || fchmod(directory.get(), kPrivate) != 0) {  // it may have existed
    throw_errno_of(path.cstring());
  }
  return directory;
}

// Returns whether the path still leads to the open directory.
static bool is_at(int directory, const fs::path_t& path) {
  struct stat opened, named;
  return fstat(directory, &opened) == 0 && lstat(path.cstring(), &named) == 0 &&
         opened.st_ino == named.st_ino && opened.st_dev == named.st_dev;
}

Staging::Staging(const fs::path_t& path)
    : target(path),
      outer(path.dir_name().join(kStagingName)),
      inner(fs::path_t(outer).join(path.base_name().cstring())),
      lock(open_private(outer)) {
  // Some network file systems cannot lock a directory. There, go on without the lock.
  const bool taken = flock(lock.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  if (taken || !is_at(lock.get(), outer)) {
    throw_failure_of(target.cstring(), "another process is unpacking there");
  }
  remove_content();  // the leftovers of a run that was killed
  if (mkdir(inner.cstring(), kDirectoryMode) != 0) {
    const int error = errno;
    rmdir(outer.cstring());
    errno = error;
    throw_errno_of(inner.cstring());
  }
}

Staging::~Staging() {
  remove_content();
  rmdir(outer.cstring());
}

// Ignores failures. If something remains, the next step that needs its place fails and reports it.
void Staging::remove_content() const {
  for (fs::iterator_t entry(outer, true); entry.has_item(); entry.move_next()) {
    remove_whole_tree(entry.get_path().cstring());
  }
}

static void check_link(const FTSENT& entry) {
  const std::optional<std::string> target = link_target(entry);
  if (!target) {
    throw_errno_of(entry.fts_path);
  }
  if (!stays_inside(*target, entry.fts_level - 1)) {
    throw_failure_of(
        printable(entry.fts_path),
        "is a link that could lead out of the release, to '" + printable(*target) + "'");
  }
}

// Makes the directory writable for its owner. Otherwise no file can be created in it and it cannot
// be renamed.
static void make_writable(const fs::path_t& directory) {
  struct stat status;
  if (stat(directory.cstring(), &status) != 0 ||
      chmod(directory.cstring(), status.st_mode | S_IWUSR) != 0) {
    throw_errno_of(directory.cstring());
  }
}

static void check_entry(const FTSENT& entry) {
  switch (entry.fts_info) {
    case FTS_D:
    case FTS_DP:
    case FTS_F:
      break;
    case FTS_SL:
      check_link(entry);
      break;
    case FTS_DNR:
    case FTS_ERR:
    case FTS_NS:
      throw_failure_of(printable(entry.fts_path), std::strerror(entry.fts_errno));
    default:
      throw_failure_of(printable(entry.fts_path), "is neither a file nor a directory nor a link");
  }
}

void Staging::check() {
  struct stat status;
  if (!walk_tree(inner.cstring(), check_entry) || stat(inner.cstring(), &status) != 0) {
    throw_errno_of(inner.cstring());
  }
  mode = status.st_mode;
  make_writable(inner);
}

void Staging::commit() {
  if (std::rename(inner.cstring(), target.cstring()) != 0) {
    if (errno != ENOTEMPTY && errno != EEXIST) {
      throw_errno_of(target.cstring());
    }
    make_writable(target);
    if (renameat2(AT_FDCWD, inner.cstring(), AT_FDCWD, target.cstring(), RENAME_EXCHANGE) != 0) {
      throw_errno_of(target.cstring());
    }
  }
  if (chmod(target.cstring(), mode) != 0) {
    throw_errno_of(target.cstring());
  }
}

}  // namespace runenv
