// Reads the directory tree that a distribution server serves. The tree may contain anything, so no
// symbolic link is followed, opening a pipe does not block, and no name is trusted.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "core/owner.h"

namespace runenv {

// The files that runenv-served writes into the tree's root, for people and for programs.
inline constexpr char kIndexPage[] = "index.html";
inline constexpr char kIndexData[] = "index.json";

struct ListedArchive {
  std::string platform;
  uint64_t bytes = 0;
};

struct ListedRelease {
  std::string name;
  std::time_t published = 0;  // mtime of the newest archive, or of a directory without archives
  std::time_t touched = 0;    // the last mtime or ctime of the directory and its archives
  uint64_t bytes = 0;         // the size of all archives
  std::vector<ListedArchive> archives;  // in order of the platforms' names
};

struct ListedItem {
  std::string name;                     // such as "platform/5"
  std::optional<std::string> latest;    // the release that the pointer names, if it exists
  std::string problem;                  // of the pointer; empty if it leads to an archive
  std::time_t since = 0;                // mtime of the pointer
  std::time_t moved = 0;                // mtime or ctime of the pointer, whichever is later
  uint64_t bytes = 0;                   // the size of all releases
  std::vector<ListedRelease> releases;  // newest first, by `published`
};

// A temporary file of a running program, or a leftover of an interrupted one.
struct ListedTemporary {
  std::string path;         // relative to the tree
  std::time_t touched = 0;  // ctime of the file
};

// A fault in the tree.
struct Finding {
  std::string path;  // relative to the tree
  std::string problem;
  bool hides = false;  // whether releases may be missing from the listing because of it
};

struct Listing {
  std::vector<ListedItem> items;  // in order of name
  std::vector<ListedTemporary> temporaries;
  std::vector<Finding> findings;  // without the problems of pointers
};

class ServedTree {
 public:
  // Opens the tree at `path`. Throws Error if nothing was ever published there, or if the tree
  // cannot be read.
  explicit ServedTree(const char* path);

  // Lists all items.
  Listing list() const;

  // Lists one item, such as "platform/5", with its temporary files and findings.
  Listing list(const std::string& item) const;

  // Opens an entry of the tree for reading. Returns an empty unique_fd and sets errno if the entry
  // does not exist or there is a symbolic link in its path.
  unique_fd open_below(const std::string& path, int flags) const;

 private:
  const unique_fd root;
};

// These functions return the path, relative to the tree, of an item, of an entry in the item's
// directory, and of an archive.
std::string path_of_item(const std::string& item, const std::string& entry = "");
std::string path_of_archive(const ListedItem& item, const ListedRelease& release,
                            const ListedArchive& archive);

// Returns a text such as "3 items, 6 releases".
std::string counts_text(const Listing& listing);

}  // namespace runenv
