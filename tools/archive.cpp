#include "tools/archive.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "core/error.h"
#include "core/owner.h"
#include "fs/file_interface.h"
#include "process/tool.h"
#include "tools/failure.h"

namespace runenv {

static constexpr char kNothing[] = "/dev/null";

// Starts tar, which reads the file `in` and writes the file `out`.
static ChildProcess::process_t* start_tar(const std::vector<const char*>& argv, const char* in,
                                          const char* out) {
  using namespace ChildProcess;
  // /dev or /proc may be missing. A redirection that fails would look like a failure of tar.
  for (const char* const file : {in, out}) {
    if (access(file, F_OK) != 0) {
      throw_errno_of(file);
    }
  }
  unsetenv("TAR_OPTIONS");  // an archive is what its files make it
  try {
    return start_tool(argv.data(), {REDIRECT_FILE, in}, {REDIRECT_FILE, out},
                      {REDIRECT_INHERIT, nullptr}, nullptr);
  } catch (const Error& error) {
    throw_failure_of("tar", error.message);
  }
}

// Runs tar to its end. Throws Error "SUBJECT: PROBLEM (tar: WHY)" if it fails.
static void run_tar(const std::vector<const char*>& argv, const char* in, const char* out,
                    const fs::path_t& subject, const std::string& problem) {
  const owner<ChildProcess::process_t, end_tool> tar(start_tar(argv, in, out));
  const ChildProcess::result_t result = ChildProcess::wait2(tar.get());
  if (result.kind != 0) {
    const bool exited = result.kind == 1;
    throw_failure_of(subject.cstring(),
                     problem + " (tar: " +
                         (exited ? "exit status " + std::to_string(result.code) : result.message) +
                         ")");
  }
}

// Sorted and without the names of users.
static void pack(const fs::path_t& source, const Replacement& archive) {
  run_tar({"tar", "-c", "-z", "-f", "-", "--sort=name", "--owner=0", "--group=0", "--numeric-owner",
           "-C", source.cstring(), ".", nullptr},
          kNothing, archive.descriptor_path().c_str(), source, "could not be packed");
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
  run_tar({"tar", "-t", "-z", "-f", "-", "--wildcards", "*", nullptr},
          archive.descriptor_path().c_str(), kNothing, source,
          "is not a .tar.gz archive with files that tar can read");
}

void make_archive(const fs::path_t& source, Replacement* archive) {
  const bool is_packed = source.is_directory();
  if (is_packed) {
    pack(source, *archive);
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
