#include "tools/packing.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/retry.h"
#include "fs/iterator.h"
#include "process/interruption.h"
#include "tools/failure.h"
#include "tools/listed_source.h"
#include "tools/progress.h"
#include "tools/run_tool.h"
#include "tools/tree.h"

namespace runenv {

// An empty directory that has no name any more, and stands in for the source in the archive: with
// the permissions that a release should have, and the source's time.
static unique_fd make_root(const fs::path_t& source) {
  const SignalsHeld held;
  std::string path = temporary_directory() + "/runenv-publish.XXXXXX";
  if (mkdtemp(path.data()) == nullptr) {
    throw_errno_of(path);
  }
  chmod(path.c_str(), kReleaseMode);  // the umask may have taken the permission to open it
  unique_fd root(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  rmdir(path.c_str());
  struct stat status;
  if (root.get() < 0 || stat(source.cstring(), &status) != 0) {
    throw_errno_of(source.cstring());
  }
  const timespec times[] = {status.st_mtim, status.st_mtim};
  if (futimens(root.get(), times) != 0) {
    throw_errno_of(source.cstring());
  }
  return root;
}

// What lies in the directory, sorted, each name with a null behind it, in a file without a name.
static unique_fd list_names(const fs::path_t& source) {
  std::set<std::string> names;
  for (fs::iterator_t entry(source, true); entry.has_item(); entry.move_next()) {
    names.insert(entry.get_name());
  }
  std::string list;
  for (const std::string& name : names) {
    list += "./" + name + '\0';
  }
  unique_fd file(memfd_create("names", MFD_CLOEXEC));
  if (file.get() < 0 || !write_all(file.get(), list)) {
    throw_errno_of(source.cstring());
  }
  return file;
}

void pack(const Making& making, uint64_t bytes, const Replacement& archive) {
  const fs::path_t source(making.source);
  std::optional<ListedSource> listed;
  if (making.list) {
    listed.emplace(source);
  }
  const unique_fd root = make_root(source), directory = open_directory(source),
                  names = list_names(source);
  std::vector<std::string> words = {"tar",
                                    "-c",
                                    "-f",
                                    "-",
                                    "--sort=name",
                                    "--owner=0",
                                    "--group=0",
                                    "--numeric-owner",
                                    "--null",
                                    "-I",
                                    making.compress != nullptr ? making.compress : "gzip"};
  words.insert(words.end(), {"-C", descriptor_path(root.get()), "--no-recursion", "."});
  words.insert(words.end(), {"-C", descriptor_path(directory.get()), "--recursion", "-T", "-"});
  if (listed) {
    words.insert(words.end(), listed->words().begin(), listed->words().end());
  }
  std::vector<const char*> argv;
  argv.reserve(words.size() + 1);
  for (const std::string& word : words) {
    argv.push_back(word.c_str());
  }
  argv.push_back(nullptr);
  Progress progress("packing", bytes, bytes_read_by);
  const ToolWatch watch{.tick = progress.ticks()};
  run_tool(argv, descriptor_path(names.get()).c_str(), archive.descriptor_path().c_str(), source,
           "could not be packed", watch);
  if (listed) {
    listed->check();
  }
}

}  // namespace runenv
