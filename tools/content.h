// What a release holds, as its producer is about to publish it: what is certainly a mistake is
// refused before any machine installs it.
#pragma once

#include <sys/types.h>

#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "fs/path.h"

namespace runenv {

// A file, directory or link of a release.
struct ContentEntry {
  char type;  // as `tar -tv` and `ls -l` show it: "-" a file, "d", "l", "h" a hard link, "p", ...
  mode_t mode;
  std::string name;    // as an archive has it, such as "./bin/run"
  std::string target;  // of a link
};

// Holds the entries of one release against what a client can use.
class ContentCheck {
 public:
  // `source` stands in messages. With `takes_all` only what no client could unpack is refused.
  ContentCheck(const fs::path_t& source, bool takes_all)
      : shown(source.cstring()), as_is(takes_all) {}

  // Throws Error if the entry cannot be meant.
  void take(const ContentEntry& entry);

  // Takes the entries of a directory that is about to be packed, all but the directory itself.
  // Returns how many bytes its files have. Throws Error.
  uint64_t take_directory(const fs::path_t& directory);

  // After the last entry. Throws Error if a single directory is around everything.
  void finish() const;

 private:
  void check_place(const ContentEntry& entry) const;
  void check_use(const ContentEntry& entry) const;
  void note_top(const ContentEntry& entry);
  [[noreturn]] void refuse(const std::string& name, const std::string& why) const;
  void refuse_unless_as_is(const std::string& name, const std::string& why) const;

  const std::string shown;
  const bool as_is;
  std::optional<std::string> only_top;  // what all entries so far are or lie in
  bool has_more = false;                // than one entry at the top, or one that is no directory
};

// Reads a line of `tar -tv --numeric-owner --quoting-style=c`. None if it is no such line.
std::optional<ContentEntry> read_listing(std::string_view line);

}  // namespace runenv
