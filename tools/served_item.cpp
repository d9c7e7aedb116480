#include "tools/served_item.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string_view>
#include <tuple>
#include <utility>

#include "fs/iterator.h"
#include "process/interruption.h"
#include "schema/layout.h"
#include "schema/pointer.h"
#include "tools/failure.h"
#include "tools/signing.h"
#include "tools/time_text.h"

namespace runenv {

namespace {

// New directories for a file. The destructor removes those that are still empty.
class NewDirectories {
 public:
  NewDirectories() = default;
  NewDirectories(const NewDirectories&) = delete;
  NewDirectories& operator=(const NewDirectories&) = delete;
  ~NewDirectories() {
    for (; !made.empty(); made.pop_back()) {
      rmdir(made.back().cstring());  // fails if the directory is not empty
    }
  }

  // Creates the missing directories of the path with the components `names` below `path`. Throws
  // Error.
  void make(fs::path_t path, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
      const fs::path_t parent = path;
      path.join(name.c_str());
      if (!path.exists()) {
        make_in(parent, path);
      }
    }
  }

 private:
  void make_in(const fs::path_t& parent, const fs::path_t& path) {
    const unique_fd descriptor = open_directory(parent);
    if (mkdir(path.cstring(), 0777) == 0) {
      made.push_back(path);
      make_readable(path);
      sync_directory(descriptor.get(), parent);
    } else if (errno != EEXIST) {
      throw_errno_of(path.cstring());
    }
  }

  // The web server must be able to enter the directory, whatever the umask is.
  static void make_readable(const fs::path_t& path) {
    static constexpr mode_t kReadable = 0755;
    struct stat status;
    if (stat(path.cstring(), &status) != 0 ||
        ((status.st_mode & kReadable) != kReadable &&
         chmod(path.cstring(), status.st_mode | kReadable) != 0)) {
      throw_errno_of(path.cstring());
    }
  }

  std::vector<fs::path_t> made;
};

}  // namespace

// Distinguishes a file from one that replaces it. All zeros if there is no file.
using FileId = std::tuple<dev_t, ino_t, time_t, long>;
static FileId id_of(const fs::path_t& path) {
  struct stat status {};
  lstat(path.cstring(), &status);
  return {status.st_dev, status.st_ino, status.st_ctim.tv_sec, status.st_ctim.tv_nsec};
}

// Returns the deepest existing directory of the path with the components `names` below `path`.
static fs::path_t existing_directory(const fs::path_t& path,
                                     const std::vector<std::string>& names) {
  fs::path_t result = path;
  for (const std::string& name : names) {
    const fs::path_t next = fs::path_t(result).join(name.c_str());
    if (!next.is_directory()) {
      break;
    }
    result = next;
  }
  return result;
}

ServedItem::ServedItem(const char* tree_path, std::vector<std::string> item_names)
    : tree(tree_path), names(std::move(item_names)) {
  struct stat status;
  if (stat(tree_path, &status) != 0) {
    throw_errno_of(tree_path);
  }
  if (!S_ISDIR(status.st_mode)) {
    throw_failure_of(tree_path, std::strerror(ENOTDIR));
  }
}

fs::path_t ServedItem::path() const {
  fs::path_t result = tree;
  for (const std::string& name : names) {
    result.join(name.c_str());
  }
  return result;
}

fs::path_t ServedItem::pointer_path() const {
  return path().join(Layout::kLatest);
}

fs::path_t ServedItem::release_path(const std::string& release) const {
  return path().join(release.c_str());
}

fs::path_t ServedItem::archive_path(const std::string& release, const std::string& platform) const {
  return release_path(release).join_ext(platform.c_str(), Layout::kArchiveExtension);
}

// Returns the entries of the directory, or none if it does not exist.
static std::vector<fs::path_t> entries_of(const fs::path_t& directory) {
  // The iterator treats a directory that may not be read or entered as empty. Opening its "." fails
  // in both cases.
  const unique_fd descriptor(
      open(fs::path_t(directory).join(".").cstring(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (descriptor.get() < 0 && errno != ENOENT) {
    throw_errno_of(directory.cstring());
  }
  std::vector<fs::path_t> result;
  for (fs::iterator_t entry(directory, true); entry.has_item(); entry.move_next()) {
    result.push_back(entry.get_path());
  }
  return result;
}

std::set<std::string> ServedItem::platforms(const std::string& release) const {
  std::set<std::string> result;
  for (const fs::path_t& entry : entries_of(release_path(release))) {
    std::string name = entry.base_name().cstring();
    if (name.ends_with(Layout::kArchiveExtension) && entry.is_regular_file()) {
      name.resize(name.size() - std::strlen(Layout::kArchiveExtension));
      result.insert(name);
    }
  }
  return result;
}

std::set<std::string> ServedItem::releases() const {
  std::set<std::string> result;
  for (const fs::path_t& entry : entries_of(path())) {
    if (entry.is_directory()) {
      result.insert(entry.base_name().cstring());
    }
  }
  return result;
}

std::optional<std::string> ServedItem::latest() const {
  const fs::path_t pointer = pointer_path();
  if (!pointer.exists()) {
    return std::nullopt;
  }
  // Reading a pipe could block, and a device may have no end.
  if (!pointer.is_regular_file()) {
    throw_failure_of(pointer.cstring(), "is not a regular file");
  }
  const malloc_ptr<char> line(read_pointer_line(pointer.cstring()));
  return std::string(line.get());
}

bool is_signed_archive(const fs::path_t& path) {
  const unique_fd file(open(path.cstring(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status;
  if (file.get() < 0 || fstat(file.get(), &status) != 0) {
    throw_errno_of(path.cstring());
  }
  return S_ISREG(status.st_mode) &&
         find_signature(file.get(), status.st_size, path.cstring()).has_value();
}

// Returns the purpose of the archive, without the time of signing and the size.
Purpose ServedItem::purpose(const std::string& release, const std::string& platform) const {
  static constexpr size_t kItemDepth = 2;  // the names that lead from the tree to the items
  Purpose result{.item = "", .release = release, .platform = platform, .time = "", .bytes = 0};
  for (size_t i = kItemDepth; i < names.size(); ++i) {
    result.item += (i == kItemDepth ? "" : "/") + names[i];
  }
  return result;
}

static std::optional<CarriedSignature> signature_of(const Replacement& archive,
                                                    const fs::path_t& place) {
  return find_signature(archive.descriptor(), archive.size(), place.cstring());
}

// Removes all signatures from the archive and signs it.
static void sign(const char* key, Purpose purpose, const fs::path_t& place, Replacement* archive) {
  while (const auto carried = signature_of(*archive, place)) {
    archive->truncate(carried->signed_bytes);
  }
  purpose.time = utc_time_text(std::time(nullptr));
  purpose.bytes = archive->size();
  sign_archive(key, purpose, archive);
  archive->settle();
}

// Throws Error if the archive came with a signature for another place, or with a damaged one that
// making.as_is does not allow.
static void check_signature(const Making& making, const Purpose& purpose, const fs::path_t& place,
                            const Replacement& archive) {
  const std::optional<CarriedSignature> carried = signature_of(archive, place);
  const std::string flaw =
      flaw_of_signature(archive.descriptor(), archive.size(), place.cstring(), carried);
  if (!flaw.empty() && (carried || !making.as_is)) {
    throw_failure_of(making.source,
                     flaw + "; sign it anew (--sign)" +
                         (carried ? "" : ", or give --as-is to publish it unsigned"));
  }
  if (carried && !is_signed_for(purpose, *carried)) {
    throw_failure_of(place.cstring(),
                     "would carry a signature for something else; --sign replaces it");
  }
}

bool ServedItem::put_archive(const std::string& release, const std::string& platform,
                             const Making& asked, const char* key, bool replace) const {
  Making making = asked;
  making.is_signed = key != nullptr || is_signed_archive(making.source);
  std::vector<std::string> way = names;
  way.push_back(release);
  const fs::path_t place = archive_path(release, platform);
  const bool again =
      place.cstring() == std::string_view(making.source);  // an archive is signed in place
  const FileId before = id_of(place);
  Replacement archive(place, existing_directory(tree, way));
  make_archive(making, &archive);
  if (key != nullptr) {
    sign(key, purpose(release, platform), place, &archive);
  } else {
    check_signature(making, purpose(release, platform), place, archive);
  }
  if (path().is_directory()) {
    lock();  // wait here, where a signal can still end the program; below, signals are held
  }
  const SignalsHeld held;  // until the archive is in place or the new directories are removed
  NewDirectories directories;
  directories.make(tree, way);
  const unique_fd locked = lock();
  if (again && id_of(place) != before) {
    throw_failure_of(place.cstring(), "was replaced meanwhile");
  }
  return archive.commit(replace, kServedMode);
}

unique_fd ServedItem::lock() const {
  unique_fd descriptor = open_directory(path());
  lock_directory(descriptor.get());
  return descriptor;
}

void ServedItem::point_at(const std::string& release) const {
  const fs::path_t place = pointer_path();
  const std::string line = release + "\n";
  Replacement pointer(place);
  pointer.write(line.data(), line.size());
  pointer.settle();
  if (pointer.read(0, line.size() + 1) != line) {
    throw_failure_of(place.cstring(), "differs from what was written");
  }
  pointer.commit(true, kServedMode);
}

}  // namespace runenv
