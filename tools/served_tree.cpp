#include "tools/served_tree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <set>
#include <tuple>

#include "core/error.h"
#include "core/failure.h"
#include "core/retry.h"
#include "schema/layout.h"
#include "tools/failure.h"
#include "tools/published_name.h"
#include "tools/size_text.h"
#include "tools/tree.h"

namespace runenv {

static const std::string kItems = std::string(Layout::kTreeRoot) + "/" + Layout::kEnvironment;

namespace {

struct Entry {
  std::string name = {}, path = {};
  struct stat status = {};
};

// Walks a tree and records its content in a listing.
class Walk {
 public:
  Walk(const ServedTree& served, Listing* result) : tree(served), listing(*result) {}

  void look_at_all();
  void look_at_root();
  void look_at_item(const Entry& directory);

 private:
  using Visit = std::function<void(const Entry&)>;

  void report(const std::string& path, const std::string& problem, bool hides = false);
  unique_fd open(const Entry& directory);
  std::vector<Entry> entries(const Entry& directory);
  void note_temporary(const Entry& entry);
  void check_mode(const Entry& entry);
  bool is_in_order(const Entry& entry, mode_t kind, const char* extension);
  void each_directory(const Entry& parent, const std::set<std::string>& expected,
                      const Visit& visit);
  void look_at_release(const Entry& directory, ListedItem* item);
  void look_at_pointer(const Entry& entry, ListedItem* item);

  const ServedTree& tree;
  Listing& listing;
};

}  // namespace

std::string path_of_item(const std::string& item, const std::string& entry) {
  return kItems + "/" + item + (entry.empty() ? "" : "/" + entry);
}

std::string path_of_archive(const ListedItem& item, const ListedRelease& release,
                            const ListedArchive& archive) {
  return path_of_item(item.name, release.name + "/" + archive.platform + Layout::kArchiveExtension);
}

std::string counts_text(const Listing& listing) {
  size_t releases = 0;
  for (const ListedItem& item : listing.items) {
    releases += item.releases.size();
  }
  return count_text(listing.items.size(), "item") + ", " + count_text(releases, "release");
}

void Walk::report(const std::string& path, const std::string& problem, bool hides) {
  listing.findings.push_back({path, problem, hides});
}

// Opens the directory. Returns an empty unique_fd if it no longer exists or cannot be read; the
// latter is reported.
unique_fd Walk::open(const Entry& directory) {
  unique_fd descriptor = tree.open_below(directory.path, O_DIRECTORY);
  // A directory may be readable but not searchable. faccessat detects this.
  if (descriptor.get() >= 0 && faccessat(descriptor.get(), ".", X_OK, 0) == 0) {
    return descriptor;
  }
  if (errno != ENOENT) {
    report(directory.path, std::string("cannot be read: ") + std::strerror(errno), true);
  }
  return unique_fd();
}

void Walk::note_temporary(const Entry& entry) {
  static constexpr std::time_t kWorkTakes = 86400;
  if (S_ISREG(entry.status.st_mode)) {
    listing.temporaries.push_back({entry.path, entry.status.st_ctime});
  }
  if (std::time(nullptr) - entry.status.st_ctime > kWorkTakes) {
    report(entry.path, "is left from an interrupted run");
  }
}

// Returns the entries of the directory in order of name, except temporary ones, which are noted.
std::vector<Entry> Walk::entries(const Entry& directory) {
  const unique_fd descriptor = open(directory);
  if (descriptor.get() < 0) {
    return {};
  }
  std::vector<Entry> result;
  const std::string below = directory.path == "." ? "" : directory.path + "/";
  for (const std::string& name : names_in(descriptor_path(descriptor.get()))) {
    Entry entry{.name = name, .path = below + name};
    if (fstatat(descriptor.get(), name.c_str(), &entry.status, AT_SYMLINK_NOFOLLOW) != 0) {
      continue;  // it is gone by now
    }
    if (is_temporary_name(entry.name)) {
      note_temporary(entry);
    } else {
      result.push_back(entry);
    }
  }
  return result;
}

static bool is_good_name(const std::string& name, const char* appended) {
  try {
    check_name("name", name, appended);
    return true;
  } catch (const Error&) {
    return false;
  }
}

// Reports an entry that the web server, which is another user, cannot read or enter.
void Walk::check_mode(const Entry& entry) {
  const bool is_directory = S_ISDIR(entry.status.st_mode);
  if ((entry.status.st_mode & (is_directory ? S_IXOTH : S_IROTH)) == 0) {
    char mode[sizeof "07777"];
    std::snprintf(mode, sizeof mode, "%04o", entry.status.st_mode & 07777);
    report(entry.path, std::string(is_directory ? "may not be entered" : "may not be read") +
                           " by the web server (mode " + mode + ")");
  }
}

// Returns whether the entry has the type `kind`, S_IFDIR or S_IFREG, and a name with the extension
// that clients can request. Reports it otherwise.
bool Walk::is_in_order(const Entry& entry, mode_t kind, const char* extension) {
  if (S_ISLNK(entry.status.st_mode)) {
    report(entry.path, "is a symbolic link", true);
  } else if ((entry.status.st_mode & S_IFMT) != kind || !entry.name.ends_with(extension)) {
    report(entry.path, "does not belong there");
  } else if (!is_good_name(entry.name.substr(0, entry.name.size() - std::strlen(extension)),
                           extension)) {
    report(entry.path, "has a name that clients cannot ask for");
  } else {
    check_mode(entry);
    return true;
  }
  return false;
}

// Visits the directories in `parent`. Reports `parent` if it has none. If `expected` is not empty,
// reports all entries with other names.
void Walk::each_directory(const Entry& parent, const std::set<std::string>& expected,
                          const Visit& visit) {
  const size_t before = listing.findings.size();
  bool found = false;
  for (const Entry& entry : entries(parent)) {
    if (!expected.empty() && !expected.contains(entry.name)) {
      report(entry.path, "does not belong there");
    } else if (is_in_order(entry, S_IFDIR, "")) {
      found = true;
      visit(entry);
    }
  }
  if (!found && listing.findings.size() == before) {
    report(parent.path, "is empty");
  }
}

// Ignores other entries of the tree's root: they do not belong to this system.
void Walk::look_at_root() {
  Entry root{.path = "."};
  fstat(tree.open_below(root.path, O_DIRECTORY).get(), &root.status);
  check_mode(root);
  for (const Entry& entry : entries(root)) {
    if (entry.name == Layout::kTreeRoot || entry.name == kIndexPage || entry.name == kIndexData) {
      check_mode(entry);
    }
  }
}

void Walk::look_at_all() {
  const Visit item = [this](const Entry& directory) { look_at_item(directory); };
  const Visit type = [&](const Entry& directory) { each_directory(directory, {}, item); };
  const Visit kind = [&](const Entry& directory) {
    each_directory(directory, {}, directory.name == Layout::kPlatform ? item : type);
  };
  const Visit environment = [&](const Entry& directory) {
    each_directory(directory, {Layout::kPlatform, Layout::kSystemTypes}, kind);
  };
  look_at_root();
  each_directory({.path = Layout::kTreeRoot}, {Layout::kEnvironment}, environment);
}

void Walk::look_at_item(const Entry& directory) {
  ListedItem item;
  item.name = directory.path.substr(kItems.size() + 1);
  item.problem = "is missing";
  const size_t before = listing.findings.size();
  const Entry* pointer = nullptr;
  const std::vector<Entry> all = entries(directory);
  for (const Entry& entry : all) {
    if (entry.name == Layout::kLatest) {
      pointer = &entry;
    } else if (is_in_order(entry, S_IFDIR, "")) {
      look_at_release(entry, &item);
    }
  }
  if (all.empty() && listing.findings.size() == before) {
    report(directory.path, "is empty");
  }
  if (pointer != nullptr) {
    look_at_pointer(*pointer, &item);
  }
  std::sort(item.releases.begin(), item.releases.end(),
            [](const ListedRelease& a, const ListedRelease& b) {
              return std::tie(a.published, a.name) > std::tie(b.published, b.name);
            });
  listing.items.push_back(std::move(item));
}

void Walk::look_at_release(const Entry& directory, ListedItem* item) {
  ListedRelease release;
  release.name = directory.name;
  release.touched = std::max(directory.status.st_mtime, directory.status.st_ctime);
  for (const Entry& entry : entries(directory)) {
    if (!is_in_order(entry, S_IFREG, Layout::kArchiveExtension)) {
      continue;
    }
    const struct stat& status = entry.status;
    const std::string platform =
        entry.name.substr(0, entry.name.size() - std::strlen(Layout::kArchiveExtension));
    release.archives.push_back({platform, static_cast<uint64_t>(status.st_size)});
    release.bytes += static_cast<uint64_t>(status.st_size);
    release.published = release.archives.size() == 1 ? status.st_mtime
                                                     : std::max(release.published, status.st_mtime);
    release.touched = std::max({release.touched, status.st_mtime, status.st_ctime});
  }
  if (release.archives.empty()) {
    release.published = directory.status.st_mtime;
    report(directory.path, "has no archive");
  }
  std::sort(release.archives.begin(), release.archives.end(),
            [](const auto& a, const auto& b) { return a.platform < b.platform; });
  item->bytes += release.bytes;
  item->releases.push_back(std::move(release));
}

// Returns the first line, as the bootstrapper reads it, cut off after 4095 bytes.
static std::string first_line(int pointer) {
  char bytes[4096];
  const ssize_t n = retry([&] { return pread(pointer, bytes, sizeof bytes - 1, 0); });
  if (n < 0) {
    throw_system_failure(errno);
  }
  bytes[n] = '\0';
  return {bytes, std::strcspn(bytes, "\r\n")};
}

void Walk::look_at_pointer(const Entry& entry, ListedItem* item) {
  if (!S_ISREG(entry.status.st_mode)) {
    item->problem = S_ISLNK(entry.status.st_mode) ? "is a symbolic link" : "is not a regular file";
    return;
  }
  item->since = entry.status.st_mtime;
  item->moved = std::max(entry.status.st_mtime, entry.status.st_ctime);
  check_mode(entry);
  const unique_fd file = tree.open_below(entry.path, O_NONBLOCK);
  if (file.get() < 0) {
    item->problem = std::string("cannot be read: ") + std::strerror(errno);
    return;
  }
  const std::string name = first_line(file.get());
  const auto named = std::find_if(item->releases.begin(), item->releases.end(),
                                  [&](const auto& release) { return release.name == name; });
  if (named == item->releases.end()) {
    item->problem = name.empty() ? "is empty" : "names '" + name + "', which is not there";
    return;
  }
  item->latest = name;
  item->problem = named->archives.empty() ? "names '" + name + "', which has no archive" : "";
}

ServedTree::ServedTree(const char* path) : root(::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (root.get() < 0) {
    throw_errno_of(path);
  }
  if (open_below(kItems, O_DIRECTORY).get() < 0) {
    throw_failure_of(std::string(path) + "/" + kItems,
                     errno == ELOOP ? "is behind a symbolic link" : std::strerror(errno));
  }
}

unique_fd ServedTree::open_below(const std::string& path, int flags) const {
  return unique_fd(runenv::open_below(root.get(), path.c_str(), O_RDONLY | flags));
}

Listing ServedTree::list() const {
  Listing result;
  Walk(*this, &result).look_at_all();
  std::sort(result.items.begin(), result.items.end(),
            [](const ListedItem& a, const ListedItem& b) { return a.name < b.name; });
  return result;
}

Listing ServedTree::list(const std::string& item) const {
  Listing result;
  Walk(*this, &result).look_at_item({.path = path_of_item(item)});
  return result;
}

}  // namespace runenv
