#include "tools/unpacking.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "fs/iterator.h"
#include "fs/tree.h"
#include "tools/failure.h"
#include "tools/published_name.h"
#include "tools/tree.h"

namespace runenv {

// Beside the releases. No release has this name, since "#" cannot be in one.
static constexpr char kStagingName[] = ".runenv-verify#unpacking";

static fs::path_t joined(fs::path_t directory, const char* name) {
  return directory.join(name);
}

Staging::Staging(const fs::path_t& path)
    : target(path),
      outer(joined(path.dir_name(), kStagingName)),
      inner(joined(outer, path.base_name().cstring())) {
  static constexpr mode_t kPrivate = 0700;
  if (mkdir(outer.cstring(), kPrivate) != 0 && errno != EEXIST) {
    throw_errno_of(outer.cstring());
  }
  lock.reset(open(outer.cstring(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (lock.get() < 0) {
    throw_errno_of(outer.cstring());
  }
  if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
    throw_failure_of(target.cstring(), "another process is unpacking there");
  }
  remove_content();  // what a killed run has left
  if (mkdir(inner.cstring(), kDirectoryMode) != 0) {
    throw_errno_of(inner.cstring());
  }
}

Staging::~Staging() {
  if (lock.get() >= 0) {
    remove_content();
    rmdir(outer.cstring());
  }
}

// What stays is said by whoever needs its place.
void Staging::remove_content() const {
  for (fs::iterator_t entry(outer, true); entry.has_item(); entry.move_next()) {
    remove_whole_tree(entry.get_path().cstring());
  }
}

// Whether a link in a directory `depth` levels below the release's leads to somewhere in the
// release. That is so if it goes up at its start alone, and not beyond the release: going down, it
// meets directories and other links that stay.
static bool stays_inside(std::string_view link, int depth) {
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

static void check_link(const FTSENT& entry) {
  char link[PATH_MAX];
  const ssize_t size = readlink(entry.fts_accpath, link, sizeof link);
  if (size < 0) {
    throw_errno_of(entry.fts_path);
  }
  const std::string_view text(link, static_cast<size_t>(size));
  if (!stays_inside(text, entry.fts_level - 1)) {
    throw_failure_of(printable(entry.fts_path),
                     "is a link out of the release, to '" + printable(text) + "'");
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

void Staging::check() const {
  if (!walk_tree(inner.cstring(), check_entry)) {
    throw_errno_of(inner.cstring());
  }
}

void Staging::commit() {
  // A directory that its owner may not write to cannot move to another one.
  struct stat status;
  if (stat(inner.cstring(), &status) != 0 ||
      chmod(inner.cstring(), status.st_mode | S_IWUSR) != 0) {
    throw_errno_of(inner.cstring());
  }
  if (std::rename(inner.cstring(), target.cstring()) != 0 &&
      ((errno != ENOTEMPTY && errno != EEXIST) ||
       renameat2(AT_FDCWD, inner.cstring(), AT_FDCWD, target.cstring(), RENAME_EXCHANGE) != 0)) {
    throw_errno_of(target.cstring());
  }
  if (chmod(target.cstring(), status.st_mode) != 0) {
    throw_errno_of(target.cstring());
  }
}

}  // namespace runenv
