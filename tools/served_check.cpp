#include "tools/served_check.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "core/error.h"
#include "schema/layout.h"
#include "tools/archive.h"
#include "tools/content.h"
#include "tools/failure.h"
#include "tools/progress.h"
#include "tools/published_name.h"
#include "tools/signature.h"
#include "tools/tree.h"

namespace runenv {

namespace {

struct Archive {
  std::string path;
  Purpose purpose;
  std::optional<CarriedSignature> signature;
  std::string problem;  // of the archive or of its signature
};

}  // namespace

// Runs the step. Returns the reason of an Error "PATH: REASON", or "" if the step succeeds.
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

// Finds the signature of the archive and a flaw of it. Does not read the whole archive.
static void look_at(const ServedTree& tree, Archive* archive) {
  const std::string& path = archive->path;
  archive->problem = problem_with(path, [&] {
    struct stat status;
    const unique_fd file = open_archive(tree, path, &status);
    archive->signature = find_signature(file.get(), status.st_size, path.c_str());
    const std::string flaw =
        flaw_of_signature(file.get(), status.st_size, path.c_str(), archive->signature);
    if (!flaw.empty()) {
      throw_failure_of(path, flaw);
    }
  });
}

// Returns what is wrong with the archive, or "". `uses_signatures` says whether any archive of the
// item is signed.
static std::string problem_of(const Archive& archive, bool uses_signatures) {
  if (!archive.problem.empty() || !uses_signatures) {
    return archive.problem;
  }
  if (!archive.signature) {
    return "is not signed, unlike others of the item";
  }
  return is_signed_for(archive.purpose, *archive.signature) ? "" : "is signed for something else";
}

// Reads the whole archive. Throws Error if a machine could not install it.
static void read_whole(const ServedTree& tree, const Archive& archive) {
  struct stat status;
  const unique_fd file = open_archive(tree, archive.path, &status);
  ContentCheck content(archive.path, archive.signature ? Judge::kVerifier : Judge::kTar);
  read_archive(descriptor_path(file.get()), archive.path, &content);
}

static std::vector<Archive> archives_of(const ServedTree& tree, const ListedItem& item) {
  std::vector<Archive> result;
  for (const ListedRelease& release : item.releases) {
    for (const ListedArchive& archive : release.archives) {
      Archive& added = result.emplace_back();
      added.path = path_of_archive(item, release, archive);
      added.purpose.item = item.name;
      added.purpose.release = release.name;
      added.purpose.platform = archive.platform;
      look_at(tree, &added);
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
  StatusLine line;
  const std::string count = std::to_string(count_archives(listing));
  size_t number = 0;
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
        line.show("reading " + std::to_string(++number) + " of " + count + ": " +
                  printable(archive.path));
        problem = problem_with(archive.path, [&] { read_whole(tree, archive); });
        line.clear();
      }
      if (!problem.empty()) {
        tell({archive.path, problem});
      }
    }
  }
}

}  // namespace runenv
