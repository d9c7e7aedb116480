// The directory tree that a distribution server serves, as it is on the disk. Anything may be in
// it: no link is followed, opening a pipe does not wait, and no name is trusted.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "core/owner.h"

namespace runenv {

// What runenv-served writes into the tree's root, for people and for programs.
inline constexpr char kIndexPage[] = "index.html";
inline constexpr char kIndexData[] = "index.json";

struct ListedArchive {
  std::string platform;
  uint64_t bytes = 0;
};

struct ListedRelease {
  std::string name;
  std::time_t published = 0;  // when the newest archive was written; without one, the directory
  std::time_t touched = 0;    // the last change of the directory or of an archive in any way
  uint64_t bytes = 0;         // of all archives
  std::vector<ListedArchive> archives;  // in order of the platforms' names
};

struct ListedItem {
  std::string name;                   // such as "platform/5"
  std::optional<std::string> latest;  // one of the releases
  std::string problem;                // of the pointer; empty if it leads to an archive
  std::time_t since = 0;              // when the pointer was written
  std::time_t moved = 0;              // the last change of the file in any way, not before `since`
  uint64_t bytes = 0;                 // of all releases
  std::vector<ListedRelease> releases;  // the one that was published last comes first
};

// A file that a program is writing, or that an interrupted program has left.
struct ListedTemporary {
  std::string path;         // below the tree
  std::time_t touched = 0;  // the last change of the file in any way
};

// Something that should not be so.
struct Finding {
  std::string path;  // below the tree
  std::string problem;
  bool hides = false;  // whether there may be releases behind it that are not listed
};

struct Listing {
  std::vector<ListedItem> items;  // in order of name
  std::vector<ListedTemporary> temporaries;
  std::vector<Finding> findings;  // about what lies in the tree, but not about pointers
};

class ServedTree {
 public:
  // Opens the tree at `path`. Throws Error if nothing was ever published there, or if it cannot be
  // read.
  explicit ServedTree(const char* path);

  // Lists all items.
  Listing list() const;

  // Lists the item of that name only, such as "platform/5", with its temporary files and findings.
  Listing list(const std::string& item) const;

  // Opens something in the tree for reading. Returns no descriptor, with errno, if it is not there
  // or is reached by a link.
  unique_fd open_below(const std::string& path, int flags) const;

 private:
  const unique_fd root;
};

// The path below the tree of an item or of an entry of its directory, and of an archive.
std::string path_of_item(const std::string& item, const std::string& entry = "");
std::string path_of_archive(const ListedItem& item, const ListedRelease& release,
                            const ListedArchive& archive);

// Such as "3 items, 6 releases".
std::string counts_text(const Listing& listing);

}  // namespace runenv
