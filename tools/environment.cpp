#include "tools/environment.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "core/retry.h"
#include "schema/layout.h"
#include "schema/pointer.h"
#include "tools/failure.h"
#include "tools/published_name.h"
#include "tools/replacement.h"
#include "tools/tree.h"

namespace runenv {

bool has_environment(const std::string& directory) {
  const std::string place = directory.empty() ? "." : directory;
  const unique_fd descriptor(open(place.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat status;
  const bool is_there = descriptor.get() >= 0 && fstatat(descriptor.get(), Layout::kEnvironment,
                                                         &status, AT_SYMLINK_NOFOLLOW) == 0;
  if (!is_there && (descriptor.get() < 0 || errno != ENOENT)) {
    throw_errno_of(place);
  }
  return is_there;
}

unique_fd open_environment(const std::string& directory) {
  return open_directory(fs::path_t(directory.c_str()).join(Layout::kEnvironment));
}

LocalItem::LocalItem(int root, const std::string& item)
    : shown(std::string(Layout::kEnvironment) + "/" + printable(item)),
      directory(open_below(root, item.c_str(), O_RDONLY | O_DIRECTORY)) {
  const auto fail = [&](const std::string& why) {
    throw OddItem(Error::Type::Failure, (shown + ": " + why).c_str());
  };
  if (directory.get() >= 0 || errno == ENOENT) {
    return;
  }
  if (errno == EXDEV) {
    fail("leads out of the environment");
  }
  if (errno == ELOOP) {
    fail("is behind a symbolic link");
  }
  if (errno == ENOTDIR) {
    fail("is not a directory");
  }
  throw_errno_of(shown);
}

std::string LocalItem::path_of(const std::string& name) const {
  return descriptor_path(directory.get()) + "/" + name;
}

bool LocalItem::lock() {
  for (;;) {
    pointer.reset(
        openat(directory.get(), Layout::kLatest, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (pointer.get() < 0 && errno == ENOENT) {
      return false;
    }
    if (pointer.get() < 0 || retry([&] { return flock(pointer.get(), LOCK_EX); }) != 0) {
      throw_errno_of(shown + "/" + Layout::kLatest);
    }
    // Another process may have replaced the file while this one waited for the lock.
    struct stat locked, named;
    if (fstat(pointer.get(), &locked) == 0 &&
        fstatat(directory.get(), Layout::kLatest, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
        locked.st_ino == named.st_ino && locked.st_dev == named.st_dev) {
      return true;
    }
  }
}

std::optional<std::string> LocalItem::current(std::string* problem) const {
  const unique_fd file(openat(directory.get(), Layout::kLatest,
                              O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (file.get() < 0 && errno == ENOENT) {
    return std::nullopt;
  }
  struct stat status {};
  const bool is_link_or_socket = file.get() < 0 && (errno == ELOOP || errno == ENXIO);
  if (!is_link_or_socket && (file.get() < 0 || fstat(file.get(), &status) != 0)) {
    throw_errno_of(shown + "/" + Layout::kLatest);
  }
  if (!S_ISREG(status.st_mode) || status.st_size > kPointerLimit) {
    *problem = S_ISREG(status.st_mode) ? "latest is too large" : "latest is not a file";
    return std::nullopt;
  }
  const malloc_ptr<char> line(read_pointer_line(descriptor_path(file.get()).c_str()));
  const std::string name = line.get();
  if (name.empty()) {
    *problem = "latest is empty";
  } else if (name == "." || name == ".." || name.find('/') != std::string::npos) {
    *problem = "latest names '" + printable(name) + "', which is not a release";
  } else if (lstat(path_of(name).c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    *problem = "latest names '" + printable(name) + "', which is not there";
  } else {
    return name;
  }
  return std::nullopt;
}

std::time_t LocalItem::switched() const {
  struct stat status;
  return lstat(path_of(Layout::kLatest).c_str(), &status) == 0 ? status.st_mtime : 0;
}

std::vector<Release> LocalItem::releases() const {
  std::vector<Release> result;
  for (const std::string& name : names_in(path_of("."))) {
    struct stat status, pointer_status;
    if (name.find('#') == std::string::npos && lstat(path_of(name).c_str(), &status) == 0 &&
        S_ISDIR(status.st_mode) &&
        lstat(path_of(name + "/" + Layout::kLatest).c_str(), &pointer_status) != 0) {
      result.push_back({name, status.st_ctim});
    }
  }
  return result;
}

std::vector<std::string> LocalItem::leftovers() const {
  std::vector<std::string> result = names_in(path_of("."));
  std::erase_if(result, [](const std::string& name) { return !is_temporary_name(name); });
  return result;
}

std::set<std::string> wanted_directories(const std::vector<std::string>& listed) {
  std::set<std::string> result;
  for (const std::string& name : listed) {
    const std::string item = std::filesystem::path(name).lexically_normal();  // such as ./5
    result.insert(item);
    for (size_t slash = item.find('/'); slash != std::string::npos;
         slash = item.find('/', slash + 1)) {
      result.insert(item.substr(0, slash));
    }
  }
  return result;
}

// Adds the paths of the directories that are `depth` levels below `directory`.
static void add_items(int root, const std::string& directory, int depth,
                      std::vector<std::string>* items) {
  const unique_fd descriptor(open_below(root, directory.c_str(), O_RDONLY | O_DIRECTORY));
  if (descriptor.get() < 0) {
    return;
  }
  const std::string below = directory + "/";
  for (const std::string& name : names_in(descriptor_path(descriptor.get()))) {
    const std::string path = below + name;
    struct stat status;
    if (fstatat(descriptor.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISDIR(status.st_mode) || path.find('#') != std::string::npos) {
      continue;
    }
    if (depth > 1) {
      add_items(root, path, depth - 1, items);
    } else {
      items->push_back(path);
    }
  }
}

std::vector<std::string> parents_of_items(int root) {
  std::vector<std::string> result;
  if (unique_fd(open_below(root, Layout::kPlatform, O_RDONLY | O_DIRECTORY)).get() >= 0) {
    result.emplace_back(Layout::kPlatform);
  }
  add_items(root, Layout::kSystemTypes, 1, &result);
  std::sort(result.begin(), result.end());
  return result;
}

std::vector<std::string> items_present(int root) {
  std::vector<std::string> result;
  add_items(root, Layout::kPlatform, 1, &result);
  add_items(root, Layout::kSystemTypes, 2, &result);
  std::sort(result.begin(), result.end());
  return result;
}

}  // namespace runenv
