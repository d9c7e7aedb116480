#include "tools/archive.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/owner.h"
#include "fs/file_interface.h"
#include "tools/failure.h"
#include "tools/listed_source.h"
#include "tools/run_tool.h"

namespace runenv {

// Sorted and without the names of users.
static void pack(const fs::path_t& source, bool list, const Replacement& archive) {
  std::vector<const char*> argv{"tar",
                                "-c",
                                "-z",
                                "-f",
                                "-",
                                "--sort=name",
                                "--owner=0",
                                "--group=0",
                                "--numeric-owner",
                                "-C",
                                source.cstring(),
                                "."};
  std::optional<ListedSource> listed;
  if (list) {
    listed.emplace(source);
    for (const std::string& word : listed->words()) {
      argv.push_back(word.c_str());
    }
  }
  argv.push_back(nullptr);
  run_tool(argv, kNoFile, archive.descriptor_path().c_str(), source, "could not be packed");
  if (listed) {
    listed->check();
  }
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
static void check_archive(const fs::path_t& source, const Replacement& archive) {
  run_tool({"tar", "-t", "-z", "-f", "-", "--wildcards", "*", nullptr},
           archive.descriptor_path().c_str(), kNoFile, source,
           "is not a .tar.gz archive with files that tar can read");
}

void make_archive(const fs::path_t& source, bool list, Replacement* archive) {
  const bool is_packed = source.is_directory();
  if (is_packed) {
    pack(source, list, *archive);
  } else {
    copy(source, *archive);
  }
  archive->settle();
  if (!is_packed && !same_content(source, *archive)) {
    throw_failure_of(source.cstring(), "reads differently from its copy");
  }
  check_archive(source, *archive);
}

}  // namespace runenv
