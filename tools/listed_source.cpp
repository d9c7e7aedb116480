#include "tools/listed_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "core/retry.h"
#include "process/interruption.h"
#include "tools/archive.h"
#include "tools/failure.h"
#include "tools/file_list.h"
#include "tools/published_name.h"
#include "tools/replacement.h"
#include "tools/tree.h"

namespace runenv {

static void check_listable(const fs::path_t& source, const Scan& scan) {
  const auto refuse = [&](const std::string& path, const std::string& why) {
    throw_failure_of(printable(fs::path_t(source).join(path.c_str()).cstring()), why);
  };
  for (const auto& [path, why] : scan.unread) {
    refuse(path, why);
  }
  for (const auto& [path, file] : scan.files) {
    if (file.type == '?') {
      refuse(path, "is neither a file nor a directory nor a link");
    }
  }
}

TemporaryFile::TemporaryFile() {
  undo_on_signals();
  directory = temporary_directory();
  path = directory + "/runenv-publish-XXXXXX";
  const SignalsHeld held;
  descriptor.reset(mkostemp(path.data(), O_CLOEXEC));
  if (descriptor.get() < 0) {
    throw_errno_of(path);
  }
  interrupted_tool_input = path.c_str();
}

TemporaryFile::~TemporaryFile() {
  unlink(path.c_str());
  interrupted_tool_input = nullptr;
}

ListedSource::ListedSource(const fs::path_t& path) : source(path), directory(open_directory(path)) {
  scan_source();
  write_list();
  const std::string name(last_component(file.path));
  tar_words = {"--transform=flags=r;s,^\\./" + name + "$,./" + kFileList + ",", "-C",
               file.directory, "./" + name};
}

void ListedSource::scan_source() {
  if (faccessat(directory.get(), kFileList, F_OK, AT_SYMLINK_NOFOLLOW) == 0) {
    throw_failure_of(source.cstring(), "has a list of files, .runenv-files, already: remove it");
  }
  scan = scan_files(directory.get());
  check_listable(source, scan);
  std::vector<std::string> files;
  for (const auto& [path, entry] : scan.files) {
    if (entry.type == 'f') {
      files.push_back(path);
    }
  }
  hash_files(directory.get(), files, &scan);
  check_listable(source, scan);
}

// The file gets the mtime of the directory, so that the same directory makes the same archive.
void ListedSource::write_list() const {
  static constexpr mode_t kMode = 0644;
  FileList list = scan.files;
  list.at(".").mode = kReleaseMode;
  const std::string text = to_text(list);
  if (text.size() > kFileListLimit) {
    throw_failure_of(source.cstring(), "has too many files to list them");
  }
  if (!write_all(file.descriptor.get(), text)) {
    throw_errno_of(file.path);
  }
  const timespec time = scan.status.at(".").st_mtim, times[] = {time, time};
  if (fchmod(file.descriptor.get(), kMode) != 0 || futimens(file.descriptor.get(), times) != 0) {
    throw_errno_of(file.path);
  }
}

void ListedSource::check() const {
  if (!is_unchanged(scan, scan_files(directory.get()))) {
    throw_failure_of(source.cstring(), "changed while it was packed");
  }
}

}  // namespace runenv
