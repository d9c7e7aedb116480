// The list of the published files of a release. It is the file ".runenv-files" in the release.
//
// The list is a text. The first line is "runenv-files 1", the last one is "end". Each line between
// them is an entry. The entries are sorted by the bytes of their paths:
//
//   d MODE - PATH         a directory; the release itself has the path "."
//   f MODE SHA-256 PATH   a file, with the digest of its content in hexadecimal
//   l - TARGET PATH       a symbolic link
//
// MODE is octal. In TARGET and PATH, control characters, blanks and backslashes are written as
// "\xNN". The list has no entry for itself.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <string_view>

namespace runenv {

inline constexpr char kFileList[] = ".runenv-files";
inline constexpr off_t kFileListLimit = 64 << 20;  // bytes

struct ListedFile {
  char type = 'f';      // 'f', 'd' or 'l'; '?' for a type that a list cannot contain
  mode_t mode = 0;      // the mode bits of a file or a directory, 07777 at most
  std::string content;  // the digest of a file, the target of a link, or empty
};

using FileList = std::map<std::string, ListedFile>;  // by path

std::string to_text(const FileList& list);

// Throws Error if the text is not a list in exactly this format.
FileList parse_file_list(std::string_view text);

}  // namespace runenv
