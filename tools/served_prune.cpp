#include "tools/served_prune.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>

#include "tools/command_line.h"
#include "tools/failure.h"
#include "tools/published_name.h"
#include "tools/remover.h"
#include "tools/replacement.h"
#include "tools/tree.h"

namespace runenv {

// Returns false for a time in the future, so an entry with a wrong clock's time is kept.
static bool is_past(std::time_t time, double days) {
  static constexpr double kDay = 86400;
  return std::difftime(std::time(nullptr), time) >= days * kDay;
}

// Pruning needs the complete listing: a release that is missing from it would not be counted.
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
  lock_directory(directory.get());
  return directory;
}

// Removes the temporary files that have not changed for `days`. Returns whether all went well.
static bool remove_temporaries(const ServedTree& tree, const Listing& listing, double days,
                               Remover* remover) {
  bool well = true;
  for (const ListedTemporary& file : listing.temporaries) {
    if (!is_past(file.touched, days)) {
      continue;
    }
    const std::string name(last_component(file.path));
    const std::string parent = "./" + file.path.substr(0, file.path.size() - name.size());
    well &= attempt([&] {
      const unique_fd directory = tree.open_below(parent + ".", O_DIRECTORY);
      remover->remove_file(descriptor_path(directory.get()) + "/" + name, file.path);
    });
  }
  return well;
}

static bool may_go(const ListedRelease& release, const Pruning& pruning) {
  return is_past(release.published, pruning.older_than) && is_past(release.touched, pruning.grace);
}

// Returns the releases that may be removed if the pointer has settled.
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
  const unique_fd locked = lock_item(tree, path);  // against publishers and other prunes
  remover->remove_leftover_from(descriptor_path(locked.get()), path);
  const Listing listing = tree.list(name);
  throw_if_hidden(listing);
  const ListedItem& item = listing.items.front();
  const std::vector<std::string> old = old_releases(item, pruning);
  // Any other release may have been the latest one before the pointer was moved.
  const bool has_settled = is_past(item.moved, pruning.grace);
  if (!old.empty() && (!item.latest || !has_settled)) {
    std::printf(
        "leaving %s: latest %s\n", printable(path).c_str(),
        item.latest ? "was moved within the grace period" : printable(item.problem).c_str());
    return;
  }
  for (const std::string& release : old) {
    remover->remove_from(descriptor_path(locked.get()), release, path);
  }
}

bool prune_tree(const ServedTree& tree, const Pruning& pruning) {
  const Listing listing = tree.list();
  throw_if_hidden(listing);
  Remover remover(pruning.dry_run);
  bool well = remove_temporaries(tree, listing, pruning.grace, &remover);
  for (const ListedItem& item : listing.items) {
    well &= attempt([&] { prune_item(tree, item.name, pruning, &remover); });
  }
  remover.sum_up();
  return well;
}

}  // namespace runenv
