// Checks the content of a release. Refuses content that machines could not install, and content
// that looks like a mistake of the producer.
#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "fs/path.h"

namespace runenv {

// A file, directory or link of a release.
struct ContentEntry {
  char type;  // the letter of `tar -tv`: "-" a file, "d", "l" a symbolic link, "h" a hard link, ...
  mode_t mode;
  std::string name;    // as in the archive, such as "./bin/run"
  std::string target;  // of a link; otherwise empty
};

// How strict a check is. Each judge also refuses everything that the judges before it refuse.
enum class Judge {
  kTar,       // refuses what tar could not unpack
  kVerifier,  // refuses what runenv-verify would not install
  kProducer   // refuses what looks like a mistake
};

// Checks the entries of one release, in the order of the archive.
class ContentCheck {
 public:
  // Messages name the release `source`.
  ContentCheck(const fs::path_t& source, Judge who) : shown(source.cstring()), judge(who) {}

  // Throws Error if the judge refuses the entry.
  void take(const ContentEntry& entry);

  // Takes all entries below a directory that is about to be packed, but not the directory itself.
  // Returns the size of its files in bytes. Throws Error.
  uint64_t take_directory(const fs::path_t& directory);

  // Call this after the last entry. As kProducer, throws Error if a single directory at the top
  // contains everything else.
  void finish() const;

 private:
  void check_place(const ContentEntry& entry) const;
  void check_hard_link(const ContentEntry& entry) const;
  void check_kind(const ContentEntry& entry);
  void check_link(const ContentEntry& entry) const;
  void check_use(const ContentEntry& entry) const;
  void note_top(const ContentEntry& entry);
  [[noreturn]] void refuse(const std::string& name, const std::string& why) const;
  void refuse_as_producer(const std::string& name, const std::string& why) const;

  const std::string shown;
  const Judge judge;
  std::map<std::string, bool> seen{{"", true}};  // each path so far: whether it is a directory
  std::optional<std::string> only_top;           // the last top-level name so far
  bool has_more = false;  // whether the top has several names, or a file or link
};

// Parses a line of `tar -tv --numeric-owner --quoting-style=c`. Returns nothing for any other line.
std::optional<ContentEntry> read_listing(std::string_view line);

}  // namespace runenv
