#include "tools/file_scan.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <span>

#include "core/error.h"
#include "core/owner.h"
#include "tools/failure.h"
#include "tools/run_tool.h"
#include "tools/tree.h"

namespace runenv {

static constexpr mode_t kPermissions = 07777;

static char type_of(const struct stat& status) {
  return S_ISREG(status.st_mode)   ? 'f'
         : S_ISDIR(status.st_mode) ? 'd'
         : S_ISLNK(status.st_mode) ? 'l'
                                   : '?';
}

static void enter(const FTSENT& entry, const std::string& path, Scan* scan) {
  if (entry.fts_info == FTS_DNR || entry.fts_info == FTS_ERR || entry.fts_info == FTS_NS) {
    scan->unread[path] = std::strerror(entry.fts_errno);
  }
  if (entry.fts_info == FTS_NS || path == kFileList) {
    return;
  }
  ListedFile file{.type = type_of(*entry.fts_statp),
                  .mode = entry.fts_statp->st_mode & kPermissions,
                  .content = ""};
  if (file.type == 'l') {
    const std::optional<std::string> target = link_target(entry);
    if (!target) {
      scan->unread[path] = std::strerror(errno);
      return;
    }
    file.content = *target;
  }
  scan->files[path] = file;
  scan->status[path] = *entry.fts_statp;
}

Scan scan_files(int directory) {
  const std::string root = descriptor_path(directory) + "/.";
  Scan scan;
  const bool well = walk_tree(root, [&](const FTSENT& entry) {
    if (entry.fts_info != FTS_DP) {
      enter(entry, entry.fts_level == 0 ? "." : entry.fts_path + root.size() + 1, &scan);
    }
  });
  if (!well) {
    throw_errno_of("a release's files");
  }
  return scan;
}

// Returns whether both describe the same file with no change to it or its content in between.
static bool is_same(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

bool is_unchanged(const Scan& before, const Scan& after) {
  return std::equal(before.status.begin(), before.status.end(), after.status.begin(),
                    after.status.end(), [](const auto& a, const auto& b) {
                      return a.first == b.first && is_same(a.second, b.second);
                    });
}

namespace {

// An open file, and its status in the scan.
struct OpenFile {
  const std::string& path;
  const struct stat& seen;
  unique_fd descriptor;

  bool is_as_seen() const {
    struct stat now;
    return fstat(descriptor.get(), &now) == 0 && is_same(seen, now);
  }
};

}  // namespace

static constexpr char kChanged[] = "changed while it was read";

// Opens the files. Leaves out those that cannot be read and records them in scan->unread.
static std::vector<OpenFile> open_files(int directory, std::span<const std::string> paths,
                                        Scan* scan) {
  std::vector<OpenFile> result;
  for (const std::string& path : paths) {
    // If the file was replaced by a pipe, for example, opening it does not block.
    OpenFile file{path, scan->status.at(path),
                  unique_fd(open_below(directory, path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY))};
    if (file.descriptor.get() < 0) {
      scan->unread[path] = std::strerror(errno);
    } else if (!file.is_as_seen()) {
      scan->unread[path] = kChanged;
    } else {
      result.push_back(std::move(file));
    }
  }
  return result;
}

// Returns the output of sha256sum for open files: a line for each file that it can read.
static std::string digests_of(const std::vector<OpenFile>& files, int output) {
  std::vector<std::string> words{"sha256sum"};
  for (const OpenFile& file : files) {
    words.push_back(descriptor_path(file.descriptor.get()));
  }
  struct stat status {};
  try {
    run_tool(words, kNoFile, descriptor_path(output).c_str(), "a release's files",
             "could not be read");
  } catch (const Error&) {
    if (fstat(output, &status) != 0 || status.st_size == 0) {
      throw;
    }
  }
  if (fstat(output, &status) != 0) {
    throw_errno_of("memory");
  }
  std::string text(static_cast<size_t>(status.st_size), '\0');
  text.resize(
      static_cast<size_t>(std::max<ssize_t>(pread(output, text.data(), text.size(), 0), 0)));
  return text;
}

void hash_files(int directory, const std::vector<std::string>& paths, Scan* scan) {
  static constexpr size_t kAtOnce = 100;  // the number of files that are open at once
  static constexpr size_t kDigestLength = 64;
  const unique_fd output(memfd_create("digests", MFD_CLOEXEC));
  if (output.get() < 0) {
    throw_errno_of("memory");
  }
  for (std::span<const std::string> rest(paths); !rest.empty();) {
    const auto batch = rest.first(std::min(kAtOnce, rest.size()));
    rest = rest.subspan(batch.size());
    const std::vector<OpenFile> files = open_files(directory, batch, scan);
    if (files.empty()) {
      continue;
    }
    const std::string text = digests_of(files, output.get());
    for (const OpenFile& file : files) {
      const size_t name = text.find("  " + descriptor_path(file.descriptor.get()) + "\n");
      if (!file.is_as_seen()) {
        scan->unread[file.path] = kChanged;
      } else if (name == std::string::npos || name < kDigestLength) {
        scan->unread[file.path] = "could not be read by sha256sum";
      } else {
        scan->files.at(file.path).content = text.substr(name - kDigestLength, kDigestLength);
      }
    }
  }
}

}  // namespace runenv
