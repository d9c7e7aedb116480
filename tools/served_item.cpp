#include "tools/served_item.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "core/allocation.h"
#include "core/bucket.h"
#include "core/error.h"
#include "fs/file_interface.h"
#include "fs/iterator.h"
#include "fs/path.h"
#include "process/tool.h"
#include "schema/layout.h"
#include "schema/pointer.h"
#include "tools/command_line.h"
#include "tools/published_name.h"
#include "tools/replacement.h"

static constexpr char kNothing[] = "/dev/null";

static std::string joined(const std::string& directory, const std::string& name) {
  return fs::path_t(directory.c_str()).join(name.c_str()).cstring();
}

// Makes what is missing on the way that `names` lead from `path`.
static void make_directories(std::string path, const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    const std::string parent = path;
    path = joined(path, name);
    if (mkdir(path.c_str(), 0777) == 0) {
      sync_directory(parent);
    } else if (errno != EEXIST) {
      fail_on(path, std::strerror(errno));
    }
  }
}

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
  process_t* tar;
  unsetenv("TAR_OPTIONS");  // an archive is what its files make it
  try {
    tar = runenv::start_tool(argv.data(), {REDIRECT_FILE, in}, {REDIRECT_FILE, out},
                             {REDIRECT_INHERIT, nullptr}, nullptr);
  } catch (const Error& error) {
    fail_on("tar", error.message);
  }
  const result_t result = wait2(tar);
  runenv::end_tool(tar);
  if (result.kind != 0) {
    const std::string end =
        result.kind == 1 ? "exit status " + std::to_string(result.code) : result.message;
    fail_on(subject, problem + " (tar: " + end + ")");
  }
}

// Sorted and without the names of users: the same files make the same archive.
static void pack(const std::string& directory, const char* archive) {
  run_tar({"tar", "-c", "-z", "-f", "-", "--sort=name", "--owner=0", "--group=0", "--numeric-owner",
           "-C", directory.c_str(), ".", nullptr},
          kNothing, archive, directory, "could not be packed");
}

// Reads the archive to its end, which has gzip compare its checksum too. The pattern has tar fail
// where nothing matches it: to tar an empty file is an archive.
static void check_archive(const char* archive, const std::string& source) {
  run_tar({"tar", "-t", "-z", "-f", "-", "--wildcards", "*", nullptr}, archive, kNothing, source,
          "is not a .tar.gz archive with files that tar can read");
}

struct FileCloser {
  void operator()(FILE* file) const { std::fclose(file); }
};

static bool same_content(const char* path, const char* other_path) {
  const std::unique_ptr<FILE, FileCloser> file(fs::path_t(path).open_read());
  const std::unique_ptr<FILE, FileCloser> other(fs::path_t(other_path).open_read());
  char block[16384], other_block[sizeof block];
  size_t n;
  do {
    n = std::fread(block, 1, sizeof block, file.get());
    if (std::fread(other_block, 1, sizeof other_block, other.get()) != n ||
        std::memcmp(block, other_block, n) != 0) {
      return false;
    }
  } while (n == sizeof block);
  return std::ferror(file.get()) == 0 && std::ferror(other.get()) == 0;
}

static void copy(const std::string& source, Replacement* archive) {
  bucket_t from = fs_init(source.c_str());
  bucket_t to = fs_init(archive->temporary_path());
  const int result = fs_fcopy(&to, &from);
  const int error = errno;
  bucket_release(&from);
  bucket_release(&to);
  if (result != 0) {
    fail_on(source, std::string("could not be copied: ") + std::strerror(error));
  }
  archive->settle();
  if (!same_content(source.c_str(), archive->temporary_path())) {
    fail_on(source, "reads differently from its copy");
  }
}

static std::string first_line(const char* path) {
  return malloc_ptr<char>(read_pointer_line(path)).get();
}

ServedItem::ServedItem(const std::string& tree_path, std::vector<std::string> item_names)
    : tree(tree_path), names(std::move(item_names)) {
  struct stat status;
  if (stat(tree.c_str(), &status) != 0) {
    fail_on(tree, std::strerror(errno));
  }
  if (!S_ISDIR(status.st_mode)) {
    fail_on(tree, std::strerror(ENOTDIR));
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
    fail_on(directory, std::strerror(errno));
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
    fail_on(pointer, "is not a regular file");
  }
  return first_line(pointer.c_str());
}

bool ServedItem::put_archive(const std::string& release, const std::string& platform,
                             const std::string& source, bool replace) const {
  std::vector<std::string> way = names;
  way.push_back(release);
  Replacement archive(archive_path(release, platform), existing_directory(tree, way));
  if (fs::path_t(source.c_str()).is_directory()) {
    pack(source, archive.temporary_path());
    archive.settle();
  } else {
    copy(source, &archive);
  }
  check_archive(archive.temporary_path(), source);
  make_directories(tree, way);  // not before: whatever fails so far leaves none of them
  return archive.commit(replace);
}

// Some network file systems cannot lock a directory: there the others are merely unlikely to come
// between.
unique_fd ServedItem::lock() const {
  unique_fd descriptor = open_directory(path(""));
  while (flock(descriptor.get(), LOCK_EX) != 0 && errno == EINTR) {
  }
  return descriptor;
}

void ServedItem::point_at(const std::string& release) const {
  Replacement pointer(path(Layout::kLatest));
  const std::string line = release + "\n";
  pointer.write(line.data(), line.size());
  pointer.settle();
  if (first_line(pointer.temporary_path()) != release) {
    fail_on(path(Layout::kLatest), "reads differently from what was written");
  }
  pointer.commit(true);
}
