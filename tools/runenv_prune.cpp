// runenv-prune: removes releases that no pointer names, and leftovers of interrupted runs.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "fs/path.h"
#include "schema/layout.h"
#include "tools/command_line.h"
#include "tools/document.h"
#include "tools/environment.h"
#include "tools/failure.h"
#include "tools/published_name.h"
#include "tools/remover.h"
#include "tools/tree.h"
#include "tools/unpacking.h"

namespace runenv {

static constexpr char kUsage[] =
    "usage: runenv-prune [OPTION ...] DOCUMENT\n"
    "\n"
    "Removes old releases of the items that DOCUMENT names, and leftovers of\n"
    "interrupted runs. The release that an item's pointer names is kept. While it\n"
    "works on an item, the program holds the lock that runenv-bootstrap takes with\n"
    "--lock-latest.\n"
    "\n"
    "  --keep N           also keep the N newest of the other releases of each item;\n"
    "                     default 0\n"
    "  --older-than DAYS  skip items whose pointer has moved in the last DAYS,\n"
    "                     because programs of the previous release may still be\n"
    "                     running; keep downloads of that time, too; default 7\n"
    "  --unlisted         also remove the items that DOCUMENT does not name, with\n"
    "                     all releases\n"
    "  --dry-run          print what would be removed, but remove nothing\n"
    "  --directory DIR    the directory that contains \"runenv\"; default: working\n"
    "                     directory\n"
    "  --temp-cache DIR   the bootstrapper's directory for downloads; default\n"
    "                     .update\n"
    "  --help             print this text\n"
    "  --version          print the version of this program\n"
    "  --                 end of options: words that follow may begin with \"-\"\n";

namespace {

struct Arguments {
  unsigned keep = 0;
  unsigned days = 7;
  bool unlisted = false;
  bool dry_run = false;
  std::string directory;  // empty: the working directory
  std::string temp_cache = ".update";
  const char* document = nullptr;
};

}  // namespace

// Returns false for a time in the future, which a wrong clock may have set, unless `days` is 0.
static bool is_older(std::time_t time, unsigned days) {
  static constexpr std::time_t kDay = 86400;
  return days == 0 || std::time(nullptr) - time >= kDay * days;
}

static std::string shown(const std::string& item) {
  return std::string(Layout::kEnvironment) + "/" + item;
}

// Removes the leftovers of earlier runs from the item's directory. runenv-verify locks the
// directory in which it unpacks, so that one is removed only if it is not locked.
static void remove_leftovers(const LocalItem& item, const std::string& name, Remover* remover) {
  remover->remove_leftover_from(item.path_of("."), shown(name));
  const unique_fd unpacking(
      openat(item.descriptor(), kStagingName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (unpacking.get() >= 0 && flock(unpacking.get(), LOCK_EX | LOCK_NB) == 0) {
    remover->remove_from(item.path_of("."), kStagingName, shown(name));
  }
}

// Locks the item. Returns whether its pointer is old enough to prune the item.
static bool take(LocalItem* item, const std::string& name, const Arguments& arguments) {
  if (!item->exists()) {
    return false;
  }
  if (!item->lock()) {
    std::printf("leaving %s: there is no latest\n", printable(shown(name)).c_str());
    return false;
  }
  return is_older(item->switched(), arguments.days);
}

// `wanted` has the items of the document and the directories above them. These are not releases of
// this item, even if they are in its directory.
static void prune_item(int root, const std::string& name, const std::set<std::string>& wanted,
                       const Arguments& arguments, Remover* remover) {
  LocalItem item(root, name);
  if (!take(&item, name, arguments)) {
    return;
  }
  std::string problem;
  const std::optional<std::string> current = item.current(&problem);
  if (!current || current->find('#') == std::string::npos) {  // otherwise it may name a leftover
    remove_leftovers(item, name, remover);
  }
  if (!current) {
    std::printf("leaving %s: %s\n", printable(shown(name)).c_str(), problem.c_str());
    return;
  }
  std::vector<Release> others = item.releases();
  std::erase_if(others, [&](const Release& release) {
    const std::filesystem::path path = std::filesystem::path(name) / release.name;
    return release.name == *current || wanted.contains(path.lexically_normal());
  });
  std::sort(others.begin(), others.end(), [](const Release& a, const Release& b) {
    return std::tie(a.changed.tv_sec, a.changed.tv_nsec) >
           std::tie(b.changed.tv_sec, b.changed.tv_nsec);
  });
  for (size_t i = arguments.keep; i < others.size(); ++i) {
    remover->remove_from(item.path_of("."), others[i].name, shown(name));
  }
}

static void remove_item(int root, const std::string& name, const Arguments& arguments,
                        Remover* remover) {
  LocalItem item(root, name);
  const size_t slash = name.rfind('/');
  const LocalItem parent(root, name.substr(0, slash));
  if (take(&item, name, arguments)) {
    flock(parent.descriptor(), LOCK_EX);  // all removals use the same temporary name there
    remover->remove_from(parent.path_of("."), name.substr(slash + 1), shown(name.substr(0, slash)));
  }
}

// Removes the leftover of an interrupted removal of an item, unless another program holds the lock.
static void clear_parent(int root, const std::string& name, Remover* remover) {
  const LocalItem parent(root, name);
  if (flock(parent.descriptor(), LOCK_EX | LOCK_NB) == 0) {
    remover->remove_leftover_from(parent.path_of("."), shown(name));
  }
}

// Returns the downloads in the temp cache that have not been written to for `days`, sorted.
static std::vector<std::string> old_downloads(int cache, unsigned days) {
  std::vector<std::string> result = names_in(descriptor_path(cache));
  std::erase_if(result, [&](const std::string& name) {
    struct stat status;
    return !(name == Layout::kLatest || name.ends_with(Layout::kArchiveExtension)) ||
           fstatat(cache, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
           !S_ISREG(status.st_mode) || !is_older(status.st_mtime, days);
  });
  return result;
}

static void clean_temp_cache(const Arguments& arguments, Remover* remover) {
  const fs::path_t cache =
      fs::path_t(arguments.directory.c_str()).join(arguments.temp_cache.c_str());
  const unique_fd directory(open(cache.cstring(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (directory.get() < 0 && errno == ENOENT) {
    return;
  }
  if (directory.get() < 0 && errno == ENOTDIR) {  // a file or a symbolic link
    std::printf("leaving %s: is not a directory\n", printable(cache.cstring()).c_str());
    return;
  }
  if (directory.get() < 0) {
    throw_errno_of(printable(cache.cstring()));
  }
  const fs::path_t place(descriptor_path(directory.get()).c_str());
  for (const std::string& name : old_downloads(directory.get(), arguments.days)) {
    remover->remove_file(fs::path_t(place).join(name.c_str()).cstring(),
                         fs::path_t(cache).join(name.c_str()).cstring());
  }
  if (!arguments.dry_run) {
    rmdir(cache.cstring());  // fails if it is not empty; the bootstrapper does the same
  }
}

static Arguments parse_arguments(int argc, char** argv) {
  Arguments result;
  const char *keep = nullptr, *days = nullptr, *directory = nullptr, *temp_cache = nullptr;
  const std::vector<const char*> words =
      parse_words(argc, argv, 1,
                  {{.name = "--keep", .value = &keep, .needs = "a number"},
                   {.name = "--older-than", .value = &days, .needs = "a number of days"},
                   {.name = "--unlisted", .flag = &result.unlisted},
                   {.name = "--dry-run", .flag = &result.dry_run},
                   {.name = "--directory", .value = &directory, .needs = "a directory"},
                   {.name = "--temp-cache", .value = &temp_cache, .needs = "a directory"}});
  if (words.size() != 1) {
    throw_usage("one document is needed");
  }
  result.document = words[0];
  result.keep = keep != nullptr ? parse_number(keep, "--keep") : result.keep;
  result.days = days != nullptr ? parse_number(days, "--older-than") : result.days;
  result.directory = directory != nullptr ? directory : result.directory;
  result.temp_cache = temp_cache != nullptr ? temp_cache : result.temp_cache;
  return result;
}

static void prune(int argc, char** argv) {
  const Arguments arguments = parse_arguments(argc, argv);
  const Document document;
  read_document(arguments.document, document);
  const std::vector<std::string> listed = item_directories(document);
  const std::set<std::string> wanted = wanted_directories(listed);
  const unique_fd root = open_environment(arguments.directory);
  Remover remover(arguments.dry_run);
  bool well = true;
  for (const std::string& name : listed) {
    well &= attempt([&] { prune_item(root.get(), name, wanted, arguments, &remover); });
  }
  for (const std::string& name : parents_of_items(root.get())) {
    well &= attempt([&] { clear_parent(root.get(), name, &remover); });
  }
  if (arguments.unlisted) {
    for (const std::string& name : items_present(root.get())) {
      well &= wanted.contains(name) ||
              attempt([&] { remove_item(root.get(), name, arguments, &remover); });
    }
  }
  well &= attempt([&] { clean_temp_cache(arguments, &remover); });
  remover.sum_up();
  finish_standard_output();
  if (!well) {
    std::exit(1);
  }
}

}  // namespace runenv

int main(int argc, char** argv) {
  return runenv::run_program(
      {.name = "runenv-prune", .usage = runenv::kUsage, .body = runenv::prune}, argc, argv);
}
