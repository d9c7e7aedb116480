// The list of a release's files, which lies in the release as ".runenv-files". It tells what was
// published.
//
// It is a text. The first line is "runenv-files 1", the last one "end". Between them each entry has
// a line, in the order of the bytes of the paths:
//
//   d MODE - PATH         a directory; the release itself has the path "."
//   f MODE SHA-256 PATH   a file, with the digest of its content in hexadecimal
//   l - TARGET PATH       a symbolic link
//
// MODE is octal. A control character, a blank or a backslash in TARGET and PATH is "\xNN". The list
// itself is not in it.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <string_view>

namespace runenv {

inline constexpr char kFileList[] = ".runenv-files";
inline constexpr off_t kFileListLimit = 64 << 20;  // bytes

struct ListedFile {
  char type = 'f';      // or 'd' or 'l'; '?' for what cannot be in a list
  mode_t mode = 0;      // the permissions, of a file or a directory
  std::string content;  // the digest of a file, the target of a link
};

using FileList = std::map<std::string, ListedFile>;  // by path

std::string to_text(const FileList& list);

// Throws Error if the text is not such a list.
FileList parse_file_list(std::string_view text);

}  // namespace runenv
