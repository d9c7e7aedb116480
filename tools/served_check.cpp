#include "tools/served_check.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "core/error.h"
#include "schema/layout.h"
#include "tools/failure.h"
#include "tools/published_name.h"
#include "tools/run_tool.h"
#include "tools/signature.h"

namespace runenv {

namespace {

// Says on a terminal which archive is being read, since that takes its time.
class Progress {
 public:
  explicit Progress(size_t archives) : total(archives) {}
  ~Progress() { clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void next(const std::string& path) {
    ++done;
    if (shown) {
      std::fprintf(stderr, "\r\x1b[Kreading %zu of %zu: %s", done, total, printable(path).c_str());
    }
  }
  void clear() const {
    if (shown) {
      std::fputs("\r\x1b[K", stderr);
    }
  }

 private:
  const bool shown = isatty(STDERR_FILENO) == 1;
  const size_t total;
  size_t done = 0;
};

struct Archive {
  std::string path;
  Purpose purpose;
  std::optional<CarriedSignature> signature;
  std::string problem;  // why its signature could not be looked for
};

}  // namespace

// Takes the step and returns what is wrong with what lies at the path; empty if nothing is.
static std::string problem_with(const std::string& path, const std::function<void()>& step) {
  try {
    step();
    return "";
  } catch (const Error& error) {
    const std::string message = error.message, subject = path + ": ";
    if (!message.starts_with(subject)) {
      throw;
    }
    return message.substr(subject.size());
  }
}

static unique_fd open_archive(const ServedTree& tree, const std::string& path,
                              struct stat* status) {
  unique_fd file = tree.open_below(path, O_NONBLOCK);
  if (file.get() < 0 || fstat(file.get(), status) != 0) {
    throw_failure_of(path, std::string("cannot be read: ") + std::strerror(errno));
  }
  if (!S_ISREG(status->st_mode)) {
    throw_failure_of(path, "is not a regular file");
  }
  return file;
}

static Archive look_at(const ServedTree& tree, const std::string& item, const std::string& release,
                       const std::string& platform) {
  Archive result;
  result.path = path_of_item(item, release + "/" + platform + Layout::kArchiveExtension);
  result.purpose.item = item;
  result.purpose.release = release;
  result.purpose.platform = platform;
  result.problem = problem_with(result.path, [&] {
    struct stat status;
    const unique_fd archive = open_archive(tree, result.path, &status);
    result.signature = find_signature(archive.get(), status.st_size, result.path.c_str());
  });
  return result;
}

// Returns what is wrong with an archive whose item has signatures or not; empty if nothing is.
static std::string problem_of(const Archive& archive, bool uses_signatures) {
  if (!archive.problem.empty() || !uses_signatures) {
    return archive.problem;
  }
  if (!archive.signature) {
    return "is not signed, unlike others of the item";
  }
  return is_signed_for(archive.purpose, *archive.signature) ? "" : "is signed for something else";
}

// Has tar list the archive. At its end gzip compares its checksum. To tar, an empty file is an
// archive: the pattern "*" finds nothing in it.
static void read_archive(const ServedTree& tree, const std::string& path) {
  struct stat status;
  const unique_fd archive = open_archive(tree, path, &status);
  run_tool({"tar", "-t", "-z", "-f", "-", "--wildcards", "*", nullptr},
           descriptor_path(archive).c_str(), kNoFile, path, "is not whole");
}

static std::vector<Archive> archives_of(const ServedTree& tree, const ListedItem& item) {
  std::vector<Archive> result;
  for (const ListedRelease& release : item.releases) {
    for (const ListedArchive& archive : release.archives) {
      result.push_back(look_at(tree, item.name, release.name, archive.platform));
    }
  }
  return result;
}

static size_t count_archives(const Listing& listing) {
  size_t count = 0;
  for (const ListedItem& item : listing.items) {
    for (const ListedRelease& release : item.releases) {
      count += release.archives.size();
    }
  }
  return count;
}

void check_tree(const ServedTree& tree, const Listing& listing, bool quick,
                const std::function<void(const Finding&)>& tell) {
  std::for_each(listing.findings.begin(), listing.findings.end(), tell);
  Progress progress(quick ? 0 : count_archives(listing));
  for (const ListedItem& item : listing.items) {
    if (!item.problem.empty()) {
      tell({path_of_item(item.name, Layout::kLatest), item.problem});
    }
    const std::vector<Archive> archives = archives_of(tree, item);
    const bool uses_signatures =
        std::any_of(archives.begin(), archives.end(),
                    [](const Archive& archive) { return archive.signature.has_value(); });
    for (const Archive& archive : archives) {
      std::string problem = problem_of(archive, uses_signatures);
      if (problem.empty() && !quick) {
        progress.next(archive.path);
        problem = problem_with(archive.path, [&] { read_archive(tree, archive.path); });
        progress.clear();
      }
      if (!problem.empty()) {
        tell({archive.path, problem});
      }
    }
  }
}

}  // namespace runenv
