#include "tools/archive.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <string_view>

#include "core/owner.h"
#include "core/retry.h"
#include "fs/file_interface.h"
#include "fs/iterator.h"
#include "process/interruption.h"
#include "tools/content.h"
#include "tools/failure.h"
#include "tools/progress.h"
#include "tools/run_tool.h"

namespace runenv {

// An empty directory that has no name any more, and stands in for the source in the archive: with
// the permissions that a release should have, and the source's time.
static unique_fd make_root(const fs::path_t& source) {
  static constexpr mode_t kMode = 0755;
  const SignalsHeld held;
  const char* const parent = std::getenv("TMPDIR");
  std::string path = std::string(parent != nullptr ? parent : "/tmp") + "/runenv-publish.XXXXXX";
  if (mkdtemp(path.data()) == nullptr) {
    throw_errno_of(path);
  }
  chmod(path.c_str(), kMode);  // the umask may have taken the permission to open it
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
  if (file.get() < 0) {
    throw_errno_of(source.cstring());
  }
  for (size_t done = 0; done != list.size();) {
    const ssize_t n = retry([&] { return write(file.get(), &list[done], list.size() - done); });
    if (n < 0) {
      throw_errno_of(source.cstring());
    }
    done += static_cast<size_t>(n);
  }
  return file;
}

static std::string path_of(const unique_fd& descriptor) {
  return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(descriptor.get());
}

// Sorted and without the names of users.
static void pack(const Making& making, uint64_t bytes, const Replacement& archive) {
  const fs::path_t source(making.source);
  const unique_fd root = make_root(source), directory = open_directory(source),
                  names = list_names(source);
  const std::string root_path = path_of(root), source_path = path_of(directory);
  const std::vector<const char*> tar = {"tar",
                                        "-c",
                                        "-I",
                                        making.compress != nullptr ? making.compress : "gzip",
                                        "-f",
                                        "-",
                                        "--sort=name",
                                        "--owner=0",
                                        "--group=0",
                                        "--numeric-owner",
                                        "--null",
                                        "-C",
                                        root_path.c_str(),
                                        "--no-recursion",
                                        ".",
                                        "-C",
                                        source_path.c_str(),
                                        "--recursion",
                                        "-T",
                                        "-",
                                        nullptr};
  Progress progress("packing", bytes, bytes_read_by);
  const ToolWatch watch{.tick = progress.ticks()};
  run_tool(tar, path_of(names).c_str(), archive.descriptor_path().c_str(), source,
           "could not be packed", watch);
}

static void copy(const fs::path_t& source, const Replacement& archive) {
  OwnedBucket from(fs_init(source.cstring()));
  OwnedBucket to(fs_init(archive.descriptor_path().c_str()));
  if (fs_fcopy(&to, &from) != 0) {
    throw_failure_of(source.cstring(), std::string("could not be copied: ") + std::strerror(errno));
  }
}

static bool same_content(const fs::path_t& source, const Replacement& archive) {
  const owner<FILE, std::fclose> file(source.open_read());
  static constexpr size_t kBlockSize = 16384;
  char block[kBlockSize];
  off_t offset = 0;
  for (;;) {
    const std::string_view bytes(block, std::fread(block, 1, kBlockSize, file.get()));
    if (std::ferror(file.get()) != 0) {
      throw_errno_of(source.cstring());
    }
    if (archive.read(offset, kBlockSize) != bytes) {
      return false;
    }
    if (bytes.empty()) {
      return true;
    }
    offset += static_cast<off_t>(bytes.size());
  }
}

// At the end of the archive gzip compares its checksum too. The pattern "*" has tar fail where
// nothing matches it: to tar, an empty file is an archive.
static void check_archive(const Making& making, const Replacement& archive) {
  const fs::path_t source(making.source);
  ContentCheck content(source, making.as_is);
  const auto take = [&](std::string_view line) {
    const std::optional<ContentEntry> entry = read_listing(line);
    if (!entry) {
      throw_failure_of(making.source, "tar lists it in an unknown way");
    }
    content.take(*entry);
  };
  const std::vector<const char*> tar = {
      "tar", "-t", "-v",          "-z", "-P",   "--numeric-owner", "--quoting-style=c",
      "-f",  "-",  "--wildcards", "*",  nullptr};
  Progress progress("checking", static_cast<uint64_t>(archive.size()), place_in_input_of);
  const ToolWatch watch{.line = take, .tick = progress.ticks()};
  run_tool(tar, archive.descriptor_path().c_str(), nullptr, source,
           "is not a .tar.gz archive with files that tar can read", watch);
  content.finish();
}

void make_archive(const Making& making, Replacement* archive) {
  const fs::path_t source(making.source);
  const bool is_packed = source.is_directory();
  if (is_packed) {
    ContentCheck content(source, making.as_is);
    const uint64_t bytes = content.take_directory(source);
    content.finish();
    pack(making, bytes, *archive);
  } else {
    copy(source, *archive);
  }
  archive->settle();
  if (!is_packed && !same_content(source, *archive)) {
    throw_failure_of(source.cstring(), "reads differently from its copy");
  }
  check_archive(making, *archive);
}

}  // namespace runenv
