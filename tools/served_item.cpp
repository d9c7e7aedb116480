#include "tools/served_item.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "core/bucket.h"
#include "core/error.h"
#include "core/owner.h"
#include "core/retry.h"
#include "fs/file_interface.h"
#include "fs/iterator.h"
#include "fs/path.h"
#include "process/interruption.h"
#include "process/tool.h"
#include "schema/layout.h"
#include "schema/pointer.h"
#include "tools/failure.h"
#include "tools/replacement.h"

namespace runenv {

static constexpr char kNothing[] = "/dev/null";

static std::string joined(const std::string& directory, const std::string& name) {
  return fs::path_t(directory.c_str()).join(name.c_str()).cstring();
}

// Directories made for a file, which are removed again if it does not come.
class NewDirectories {
 public:
  NewDirectories() = default;
  NewDirectories(const NewDirectories&) = delete;
  NewDirectories& operator=(const NewDirectories&) = delete;
  ~NewDirectories() {
    for (; !made.empty(); made.pop_back()) {
      rmdir(made.back().c_str());  // fails where there is something in it
    }
  }

  // Makes what is missing on the way that `names` lead from `path`. Throws Error.
  void make(std::string path, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
      const std::string parent = path;
      path = joined(path, name);
      if (!fs::path_t(path.c_str()).exists()) {
        make_in(parent, path);
      }
    }
  }

 private:
  void make_in(const std::string& parent, const std::string& path) {
    const unique_fd descriptor = open_directory(parent.c_str());
    if (mkdir(path.c_str(), 0777) == 0) {
      made.push_back(path);
      sync_directory(descriptor.get(), parent.c_str());
    } else if (errno != EEXIST) {
      throw_errno_of(path);
    }
  }

  std::vector<std::string> made;
};

// The last directory on that way that is there already.
static std::string existing_directory(std::string path, const std::vector<std::string>& names) {
  std::string result = path;
  for (const std::string& name : names) {
    path = joined(path, name);
    if (!fs::path_t(path.c_str()).is_directory()) {
      break;
    }
    result = path;
  }
  return result;
}

// Runs tar from and to files; throws Error "subject: problem (what became of tar)" if it fails.
static void run_tar(const std::vector<const char*>& argv, const char* in, const char* out,
                    const std::string& subject, const std::string& problem) {
  using namespace ChildProcess;
  for (const char* const file : {in, out}) {  // /dev or /proc may not be there
    if (access(file, F_OK) != 0) {
      throw_errno_of(file);
    }
  }
  process_t* tar;
  unsetenv("TAR_OPTIONS");  // an archive is what its files make it
  try {
    tar = start_tool(argv.data(), {REDIRECT_FILE, in}, {REDIRECT_FILE, out},
                     {REDIRECT_INHERIT, nullptr}, nullptr);
  } catch (const Error& error) {
    throw_failure_of("tar", error.message);
  }
  const result_t result = wait2(tar);
  end_tool(tar);
  if (result.kind != 0) {
    const std::string end =
        result.kind == 1 ? "exit status " + std::to_string(result.code) : result.message;
    throw_failure_of(subject, problem + " (tar: " + end + ")");
  }
}

// Sorted and without the names of users: the same files make the same archive.
static void pack(const std::string& directory, const std::string& archive) {
  run_tar({"tar", "-c", "-z", "-f", "-", "--sort=name", "--owner=0", "--group=0", "--numeric-owner",
           "-C", directory.c_str(), ".", nullptr},
          kNothing, archive.c_str(), directory, "could not be packed");
}

// Reads the archive to its end, which has gzip compare its checksum too. The pattern has tar fail
// where nothing matches it: to tar an empty file is an archive.
static void check_archive(const std::string& archive, const std::string& source) {
  run_tar({"tar", "-t", "-z", "-f", "-", "--wildcards", "*", nullptr}, archive.c_str(), kNothing,
          source, "is not a .tar.gz archive with files that tar can read");
}

struct FileCloser {
  void operator()(FILE* file) const { std::fclose(file); }
};

// A file that is read in blocks. What fails throws Error, naming it as `name`.
class BlockReader {
 public:
  BlockReader(const std::string& path, std::string file_name)
      : name(std::move(file_name)), file(fs::path_t(path.c_str()).open_read()) {}

  // The next block, empty only at the end; valid until the next one is read.
  std::string_view next() {
    const size_t n = std::fread(block, 1, sizeof block, file.get());
    if (std::ferror(file.get()) != 0) {
      throw_errno_of(name);
    }
    return {block, n};
  }

 private:
  std::string name;
  std::unique_ptr<FILE, FileCloser> file;
  char block[16384] = {};
};

static bool same_content(BlockReader file, BlockReader other) {
  for (;;) {
    const std::string_view block = file.next();
    if (other.next() != block) {
      return false;
    }
    if (block.empty()) {
      return true;
    }
  }
}

static void copy(const std::string& source, Replacement* archive, const std::string& place) {
  bucket_t from = fs_init(source.c_str());
  bucket_t to = fs_init(archive->descriptor_path().c_str());
  const int result = fs_fcopy(&to, &from);
  const int error = errno;
  bucket_release(&from);
  bucket_release(&to);
  if (result != 0) {
    throw_failure_of(source, std::string("could not be copied: ") + std::strerror(error));
  }
  archive->settle();
  if (!same_content({source, source}, {archive->descriptor_path(), place})) {
    throw_failure_of(source, "reads differently from its copy");
  }
}

ServedItem::ServedItem(const std::string& tree_path, std::vector<std::string> item_names)
    : tree(tree_path), names(std::move(item_names)) {
  struct stat status;
  if (stat(tree.c_str(), &status) != 0) {
    throw_errno_of(tree);
  }
  if (!S_ISDIR(status.st_mode)) {
    throw_failure_of(tree, std::strerror(ENOTDIR));
  }
}

std::string ServedItem::path(const std::string& name) const {
  std::string result = tree;
  for (const std::string& component : names) {
    result = joined(result, component);
  }
  return joined(result, name);
}

std::string ServedItem::archive_path(const std::string& release,
                                     const std::string& platform) const {
  return joined(path(release), platform + Layout::kArchiveExtension);
}

std::set<std::string> ServedItem::platforms(const std::string& release) const {
  std::set<std::string> result;
  const std::string directory = path(release);
  // The iterator takes one that may not be read, or by the "." not be entered, for an empty one.
  const unique_fd descriptor(open((directory + "/.").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (descriptor.get() < 0 && errno != ENOENT) {
    throw_errno_of(directory);
  }
  for (fs::iterator_t entry(directory.c_str(), true); entry.has_item(); entry.move_next()) {
    std::string name = entry.get_name();
    if (name.ends_with(Layout::kArchiveExtension) && entry.get_path().is_regular_file()) {
      name.resize(name.size() - std::strlen(Layout::kArchiveExtension));
      result.insert(name);
    }
  }
  return result;
}

std::optional<std::string> ServedItem::latest() const {
  const std::string pointer = path(Layout::kLatest);
  const fs::path_t file(pointer.c_str());
  if (!file.exists()) {
    return std::nullopt;
  }
  if (!file.is_regular_file()) {  // a pipe would have nothing to say, a device no end
    throw_failure_of(pointer, "is not a regular file");
  }
  const malloc_ptr<char> line(read_pointer_line(pointer.c_str()));
  return std::string(line.get());
}

bool ServedItem::put_archive(const std::string& release, const std::string& platform,
                             const std::string& source, bool replace) const {
  std::vector<std::string> way = names;
  way.push_back(release);
  const std::string place = archive_path(release, platform);
  Replacement archive(place.c_str(), existing_directory(tree, way).c_str());
  if (fs::path_t(source.c_str()).is_directory()) {
    pack(source, archive.descriptor_path());
    archive.settle();
  } else {
    copy(source, &archive, place);
  }
  check_archive(archive.descriptor_path(), source);
  const SignalsHeld held;  // until the directories hold the archive, or are gone again
  NewDirectories directories;
  directories.make(tree, way);
  return archive.commit(replace);
}

// Some network file systems cannot lock a directory: there the others are merely unlikely to come
// between.
unique_fd ServedItem::lock() const {
  unique_fd descriptor = open_directory(path("").c_str());
  retry([&] { return flock(descriptor.get(), LOCK_EX); });
  return descriptor;
}

void ServedItem::point_at(const std::string& release) const {
  const std::string place = path(Layout::kLatest);
  Replacement pointer(place.c_str());
  const std::string line = release + "\n";
  pointer.write(line.data(), line.size());
  pointer.settle();
  if (BlockReader(pointer.descriptor_path(), place).next() != line) {
    throw_failure_of(place, "reads differently from what was written");
  }
  pointer.commit(true);
}

}  // namespace runenv
