// The directory tree that a distribution server serves, as it lies on the disk, whatever lies in
// it. No link in it is followed, no pipe waited for, and no name trusted.
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
  std::time_t written = 0;
};

struct ListedRelease {
  std::string name;
  std::time_t published = 0;  // when the newest archive was written; without one, the directory
  std::time_t touched = 0;    // the last that was done to the directory or to an archive
  uint64_t bytes = 0;         // of all archives
  std::vector<ListedArchive> archives;  // in order of the platforms' names
};

struct ListedItem {
  std::string name;                     // such as "platform/5"
  std::optional<std::string> latest;    // one of the releases
  std::string problem;                  // of the pointer, without which it leads to an archive
  std::time_t since = 0;                // when the pointer was written
  std::time_t moved = 0;                // the last that was done to it, at least as late
  std::vector<ListedRelease> releases;  // the one that was published last comes first
};

// Something that should not be so.
struct Finding {
  std::string path;  // below the tree
  std::string problem;
  bool hides = false;  // what may lie behind it
};

struct Listing {
  std::vector<ListedItem> items;  // in order of name
  std::vector<Finding> findings;  // about what lies in the tree, but not about pointers
};

class ServedTree {
 public:
  // Throws Error if nothing can be published there yet, or if it cannot be read.
  explicit ServedTree(const char* path);

  Listing list() const;

  // Lists the item of that name alone.
  Listing list(const std::string& item) const;

  // Opens something in the tree for reading. Returns no descriptor, with errno, if it is not there
  // or is reached by a link.
  unique_fd open_below(const std::string& path, int flags) const;

 private:
  const unique_fd root;
};

// The path of an item below the tree, and of what is in it.
std::string path_of_item(const std::string& item, const std::string& entry = "");

// What programs have left there, or are at work on, such as ".runenv-publish#abcdef".
bool is_temporary(const std::string& name);

// A path of this process for what it has open.
std::string descriptor_path(const unique_fd& descriptor);

}  // namespace runenv
