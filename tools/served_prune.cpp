#include "tools/served_prune.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "core/retry.h"
#include "fs/iterator.h"
#include "tools/command_line.h"
#include "tools/failure.h"
#include "tools/published_name.h"
#include "tools/remover.h"

namespace runenv {

// A time in the future is not past, and leaves things as they are.
static bool is_past(std::time_t time, double days) {
  static constexpr double kDay = 86400;
  return std::difftime(std::time(nullptr), time) >= days * kDay;
}

// What would take part in removing, or be left out, without being seen.
static void throw_if_hidden(const Listing& listing) {
  for (const Finding& finding : listing.findings) {
    if (finding.hides) {
      throw_failure_of(printable(finding.path), printable(finding.problem));
    }
  }
}

// Opens the item's directory and takes the lock that publishers take.
static unique_fd lock_item(const ServedTree& tree, const std::string& path) {
  unique_fd directory = tree.open_below(path, O_DIRECTORY);
  if (directory.get() < 0) {
    throw_errno_of(printable(path));
  }
  retry([&] { return flock(directory.get(), LOCK_EX); });  // some file systems have no locks
  return directory;
}

// What runs have left in the directory that nobody has written to for long enough.
static void remove_temporaries(const ServedTree& tree, const std::string& path, double days,
                               Remover* remover) {
  const unique_fd directory = tree.open_below(path, O_DIRECTORY);
  std::vector<std::string> old;
  fs::iterator_t entry(descriptor_path(directory).c_str(), true);
  for (; entry.has_item(); entry.move_next()) {
    struct stat status;
    if (is_temporary(entry.get_name()) && lstat(entry.get_path().cstring(), &status) == 0 &&
        S_ISREG(status.st_mode) && is_past(status.st_ctime, days)) {
      old.emplace_back(entry.get_name());
    }
  }
  for (const std::string& name : old) {
    remover->remove_file(fs::path_t(descriptor_path(directory)).join(name.c_str()).cstring(),
                         fs::path_t(path).join(name.c_str()).cstring());
  }
}

static bool may_go(const ListedRelease& release, const Pruning& pruning) {
  return is_past(release.published, pruning.older_than) && is_past(release.touched, pruning.grace);
}

// The releases that are old enough to go, if the pointer lets them.
static std::vector<std::string> old_releases(const ListedItem& item, const Pruning& pruning) {
  std::vector<std::string> result;
  unsigned kept = 0;
  for (const ListedRelease& release : item.releases) {
    if (release.name != item.latest && kept++ >= pruning.keep && may_go(release, pruning)) {
      result.push_back(release.name);
    }
  }
  return result;
}

static void prune_item(const ServedTree& tree, const std::string& name, const Pruning& pruning,
                       Remover* remover) {
  const std::string path = path_of_item(name);
  const unique_fd locked = lock_item(tree, path);  // nobody publishes or prunes it meanwhile
  remover->remove_leftover_from(descriptor_path(locked), path);
  remove_temporaries(tree, path, pruning.grace, remover);
  const Listing listing = tree.list(name);
  throw_if_hidden(listing);
  const ListedItem& item = listing.items.front();
  for (const ListedRelease& release : item.releases) {
    remove_temporaries(tree, path + "/" + release.name, pruning.grace, remover);
  }
  const std::vector<std::string> old = old_releases(item, pruning);
  // All other releases were named before the pointer moved, nobody knows which of them until then.
  const bool has_settled = is_past(item.moved, pruning.grace);
  if (!old.empty() && (!item.latest || !has_settled)) {
    std::printf(
        "leaving %s: latest %s\n", printable(path).c_str(),
        item.latest ? "was moved within the grace period" : printable(item.problem).c_str());
    return;
  }
  for (const std::string& release : old) {
    remover->remove_from(descriptor_path(locked), release, path);
  }
}

bool prune_tree(const ServedTree& tree, const Pruning& pruning) {
  const Listing listing = tree.list();
  throw_if_hidden(listing);
  Remover remover(pruning.dry_run);
  bool well = attempt([&] { remove_temporaries(tree, ".", pruning.grace, &remover); });
  for (const ListedItem& item : listing.items) {
    well &= attempt([&] { prune_item(tree, item.name, pruning, &remover); });
  }
  remover.sum_up();
  return well;
}

}  // namespace runenv
