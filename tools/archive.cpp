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
#include "tools/packing.h"
#include "tools/progress.h"
#include "tools/run_tool.h"

namespace runenv {

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

// gzip checks the checksum at the end of the archive. The pattern "*" makes tar fail if the archive
// has no entries: otherwise tar would accept an empty file.
void read_archive(const std::string& file, const fs::path_t& subject, ContentCheck* content,
                  const std::function<void(pid_t)>& tick) {
  const auto take = [&](std::string_view line) {
    const std::optional<ContentEntry> entry = read_listing(line);
    if (!entry) {
      throw_failure_of(subject.cstring(), "tar's listing has an unknown format");
    }
    content->take(*entry);
  };
  const std::vector<std::string> tar = {
      "tar", "-t", "-v",          "-z", "-P", "--numeric-owner", "--quoting-style=c",
      "-f",  "-",  "--wildcards", "*"};
  run_tool(tar, file.c_str(), nullptr, subject,
           "is not a .tar.gz archive with files that tar can read", {.line = take, .tick = tick});
  // gzip also reads other formats, such as zip. The client's tar does not recognise them.
  const owner<FILE, std::fclose> start(fs::path_t(file).open_read());
  if (std::getc(start.get()) != 0x1f || std::getc(start.get()) != 0x8b) {
    throw_failure_of(subject.cstring(), "is not in gzip's format, which clients expect");
  }
  content->finish();
}

static void check_archive(const fs::path_t& source, Judge judge, const Replacement& archive) {
  ContentCheck content(source, judge);
  Progress progress("checking", static_cast<uint64_t>(archive.size()), place_in_input_of);
  read_archive(archive.descriptor_path(), source, &content, progress.ticks());
}

void make_archive(const Making& making, Replacement* archive) {
  const fs::path_t source(making.source);
  const bool is_packed = source.is_directory();
  const Judge judge = !making.as_is      ? Judge::kProducer
                      : making.is_signed ? Judge::kVerifier
                                         : Judge::kTar;
  if (is_packed) {
    ContentCheck content(source, judge);
    const uint64_t bytes = content.take_directory(source);
    content.finish();
    pack(making, bytes, *archive);
  } else {
    copy(source, *archive);
  }
  archive->settle();
  if (!is_packed && !same_content(source, *archive)) {
    throw_failure_of(source.cstring(), "differs from its copy");
  }
  check_archive(source, judge, *archive);
}

}  // namespace runenv
