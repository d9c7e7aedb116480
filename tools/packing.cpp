#include "tools/packing.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "core/retry.h"
#include "process/interruption.h"
#include "tools/failure.h"
#include "tools/listed_source.h"
#include "tools/progress.h"
#include "tools/run_tool.h"
#include "tools/tree.h"

namespace runenv {

// Returns an empty directory that tar packs as the release's own directory instead of the source.
// It has the mode of a release and the source's mtime. It is already removed, so it has no name.
static unique_fd make_root(const struct stat& source) {
  const SignalsHeld held;
  const std::string shown = temporary_directory() + "/runenv-publish.XXXXXX";
  std::string path = shown;
  if (mkdtemp(path.data()) == nullptr) {
    throw_errno_of(shown);
  }
  chmod(path.c_str(), kReleaseMode);  // the umask may have taken the permission to open it
  unique_fd root(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const timespec times[] = {source.st_mtim, source.st_mtim};
  const bool made = root.get() >= 0 && futimens(root.get(), times) == 0;
  const int error = errno;
  rmdir(path.c_str());
  errno = error;
  if (!made) {
    throw_errno_of(shown);
  }
  return root;
}

static struct stat status_of(int directory, const fs::path_t& source) {
  struct stat status;
  if (fstat(directory, &status) != 0) {
    throw_errno_of(source.cstring());
  }
  return status;
}

// Returns a file in memory with the sorted names in the directory, each followed by a NUL.
static unique_fd list_names(const fs::path_t& source) {
  std::string list;
  for (const std::string& name : names_in(source.cstring())) {
    list += "./" + name + '\0';
  }
  unique_fd file(memfd_create("names", MFD_CLOEXEC));
  if (file.get() < 0 || !write_all(file.get(), list)) {
    throw_errno_of(source.cstring());
  }
  return file;
}

// Returns the command line of tar. It packs `root` as the release's directory, and the entries of
// `directory` that its standard input names.
static std::vector<std::string> tar_words(const Making& making, int root, int directory) {
  return {"tar",
          "-c",
          "-f",
          "-",
          "--sort=name",
          "--owner=0",
          "--group=0",
          "--numeric-owner",
          "--null",
          "-I",
          making.compress != nullptr ? making.compress : "gzip",
          "-C",
          descriptor_path(root),
          "--no-recursion",
          ".",
          "-C",
          descriptor_path(directory),
          "--recursion",
          "-T",
          "-"};
}

void pack(const Making& making, uint64_t bytes, const Replacement& archive) {
  const fs::path_t source(making.source);
  std::optional<ListedSource> listed;
  if (making.list) {
    listed.emplace(source);
  }
  const unique_fd directory = open_directory(source);
  const struct stat before = status_of(directory.get(), source);
  const unique_fd root = make_root(before), names = list_names(source);
  std::vector<std::string> words = tar_words(making, root.get(), directory.get());
  if (listed) {
    words.insert(words.end(), listed->words().begin(), listed->words().end());
  }
  Progress progress("packing", bytes, bytes_read_by);
  const ToolWatch watch{.tick = progress.ticks()};
  run_tool(words, descriptor_path(names.get()).c_str(), archive.descriptor_path().c_str(), source,
           "could not be packed", watch);
  // tar detects changes below the directory, but not new entries of the directory itself.
  const timespec was = before.st_ctim, is = status_of(directory.get(), source).st_ctim;
  if (was.tv_sec != is.tv_sec || was.tv_nsec != is.tv_nsec) {
    throw_failure_of(source.cstring(), "changed while it was packed");
  }
  if (listed) {
    listed->check();
  }
}

}  // namespace runenv
