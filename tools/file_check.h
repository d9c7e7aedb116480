// Holding the files of an installed release against the list that came with it.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace runenv {

// One entry that is not as it was published, or of which that could not be found out.
struct Difference {
  const char* kind;    // "missing", "changed", "extra" or "unread"
  std::string path;    // in the release; of the list itself, if that is wrong
  std::string detail;  // what is changed, or why it could not be read

  bool is_known() const { return kind[0] != 'u'; }
};

// How the release behind the descriptor differs from its list; none if it has no list. What one
// umask takes from the permissions of all entries is no difference. Throws Error if it cannot be
// found out.
std::optional<std::vector<Difference>> check_files(int release);

}  // namespace runenv
