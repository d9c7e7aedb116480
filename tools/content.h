// What is in a release. What machines could not install, and what looks like a mistake of its
// producer, is refused before any machine gets it.
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
  char type;  // as `tar -tv` and `ls -l` show it: "-" a file, "d", "l", "h" a hard link, "p", ...
  mode_t mode;
  std::string name;    // as an archive has it, such as "./bin/run"
  std::string target;  // of a link
};

// For whom a release is checked. Each refuses what those before it refuse, and more.
enum class Judge {
  kTar,       // refuses what tar could not unpack
  kVerifier,  // refuses what runenv-verify would not install
  kProducer   // refuses what looks like a mistake
};

// Checks the entries of one release, in the order of the archive.
class ContentCheck {
 public:
  // `source` stands in messages.
  ContentCheck(const fs::path_t& source, Judge who) : shown(source.cstring()), judge(who) {}

  // Throws Error if the judge refuses the entry.
  void take(const ContentEntry& entry);

  // Takes the entries of a directory that is about to be packed, all but the directory itself.
  // Returns how many bytes its files have. Throws Error.
  uint64_t take_directory(const fs::path_t& directory);

  // After the last entry. Throws Error if a single directory is around everything.
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
  std::optional<std::string> only_top;           // what all entries so far are or lie in
  bool has_more = false;  // than one entry at the top, or one that is no directory
};

// Reads a line of `tar -tv --numeric-owner --quoting-style=c`. None if it is no such line.
std::optional<ContentEntry> read_listing(std::string_view line);

}  // namespace runenv
