#include "tools/file_check.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "core/error.h"
#include "core/owner.h"
#include "tools/failure.h"
#include "tools/file_list.h"
#include "tools/file_scan.h"
#include "tools/signature.h"
#include "tools/tree.h"

namespace runenv {

static constexpr char kMissing[] = "missing", kChanged[] = "changed", kExtra[] = "extra",
                      kUnread[] = "unread";

static Difference wrong_list(const std::string& what) {
  return {kChanged, kFileList, what};
}

// Returns the text of the list, or nothing if there is no list. Sets `wrong` if it is not a file or
// too large.
static std::optional<std::string> read_list(int release, std::optional<Difference>* wrong) {
  const unique_fd file(open_below(release, kFileList, O_RDONLY | O_NONBLOCK | O_NOCTTY));
  struct stat status;
  if (file.get() < 0 && errno == ENOENT) {
    return std::nullopt;
  }
  if (file.get() < 0 && (errno == ELOOP || errno == ENXIO)) {  // a link, a socket
    *wrong = wrong_list("is not a file");
    return "";
  }
  if (file.get() < 0 || fstat(file.get(), &status) != 0) {
    throw_errno_of(kFileList);
  }
  if (!S_ISREG(status.st_mode) || status.st_size > kFileListLimit) {
    *wrong = wrong_list(S_ISREG(status.st_mode) ? "is too large" : "is not a file");
    return "";
  }
  const owner<FILE, std::fclose> stream(fopen(descriptor_path(file.get()).c_str(), "rce"));
  std::string text(static_cast<size_t>(status.st_size), '\0');
  if (stream == nullptr || (std::fread(text.data(), 1, text.size(), stream.get()) != text.size() &&
                            std::ferror(stream.get()) != 0)) {
    throw_errno_of(kFileList);
  }
  return text;
}

// Returns the mode bits that occur in the list but in no entry of the release. The umask has
// cleared them.
static mode_t masked_permissions(const FileList& list, const FileList& found) {
  mode_t listed = 0, left = 0;
  for (const auto& [path, file] : list) {
    const auto there = found.find(path);
    if (there != found.end() && there->second.type == file.type && file.type != 'l') {
      listed |= file.mode;
      left |= there->second.mode;
    }
  }
  return listed & ~left;
}

static std::string change(const ListedFile& listed, const ListedFile& found, mode_t masked) {
  if (listed.type != found.type) {
    return "type";
  }
  mode_t mode = listed.mode & ~masked;
  if (listed.type == 'd') {
    mode |= found.mode & S_ISGID;  // a new directory may inherit this bit from its parent
  }
  std::string result;
  const auto add = [&](const std::string& what) { result += (result.empty() ? "" : ", ") + what; };
  if (listed.type != 'l' && found.mode != mode) {
    char modes[sizeof "mode 7777 for 7777"];
    std::snprintf(modes, sizeof modes, "mode %o for %o", found.mode & 07777U, mode & 07777U);
    add(modes);
  }
  if (listed.type != 'd' && listed.content != found.content) {
    add(listed.type == 'l' ? "target '" + found.content + "'" : "content");
  }
  return result;
}

// Returns whether the path is in a directory that could not be read.
static bool is_hidden(const std::string& path, const Scan& scan) {
  for (size_t slash = path.find('/'); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    if (scan.unread.contains(path.substr(0, slash))) {
      return true;
    }
  }
  return scan.unread.contains(".");
}

static std::vector<Difference> compare(const FileList& list, const Scan& scan) {
  const mode_t masked = masked_permissions(list, scan.files);
  std::vector<Difference> result;
  for (const auto& [path, why] : scan.unread) {
    result.push_back({kUnread, path, why});
  }
  for (const auto& [path, listed] : list) {
    const auto found = scan.files.find(path);
    if (found == scan.files.end()) {
      if (!scan.unread.contains(path) && !is_hidden(path, scan)) {
        result.push_back({kMissing, path, ""});
      }
      continue;
    }
    ListedFile seen = found->second;
    if (scan.unread.contains(path)) {
      seen.content = listed.content;  // the content is unknown, so only the rest is compared
    }
    const std::string what = change(listed, seen, masked);
    if (!what.empty()) {
      result.push_back({kChanged, path, what});
    }
  }
  for (const auto& [path, file] : scan.files) {
    if (!list.contains(path) && path != kRememberedSignature) {
      result.push_back({kExtra, path, ""});
    }
  }
  return result;
}

std::optional<std::vector<Difference>> check_files(int release) {
  std::optional<Difference> wrong;
  const std::optional<std::string> text = read_list(release, &wrong);
  if (!text) {
    return std::nullopt;
  }
  FileList list;
  try {
    if (!wrong) {
      list = parse_file_list(*text);
    }
  } catch (const Error& error) {
    wrong = wrong_list(error.message);
  }
  if (wrong) {
    return std::vector<Difference>{*wrong};
  }
  Scan scan = scan_files(release);
  std::vector<std::string> files;
  for (const auto& [path, file] : list) {
    const auto found = scan.files.find(path);
    if (found != scan.files.end() && file.type == 'f' && found->second.type == 'f') {
      files.push_back(path);
    }
  }
  hash_files(release, files, &scan);
  return compare(list, scan);
}

}  // namespace runenv
