// Compares the files of an installed release with the list that was published with it.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace runenv {

// An entry that differs from the published one, or that could not be compared.
struct Difference {
  const char* kind;    // "missing", "changed", "extra" or "unread"
  std::string path;    // relative to the release; the list's own path if the list is damaged
  std::string detail;  // what has changed, or why the entry could not be read

  bool is_known() const { return kind[0] != 'u'; }
};

// Returns the differences between the release in the directory `release`, a file descriptor, and
// its list. Returns nothing if it has no list. Mode bits that a umask has cleared in all entries
// are not differences. Throws Error if the list cannot be read or the files cannot be compared.
std::optional<std::vector<Difference>> check_files(int release);

}  // namespace runenv
