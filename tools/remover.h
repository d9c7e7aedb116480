// Removes directories so that no other program ever finds a part of one in its place.
#pragma once

#include <cstdint>
#include <string>

namespace runenv {

// Removes entries, prints each one on standard output, and adds up their sizes. In dry-run mode it
// removes nothing. The functions throw Error.
class Remover {
 public:
  explicit Remover(bool dry) : is_dry(dry) {}

  // Removes the entry `name` of the directory. Messages name the directory `shown`. First renames
  // the entry to a name such as ".runenv-prune#removing". So nobody finds a part of it under its
  // own name, neither during the removal nor after an interruption.
  void remove_from(const std::string& directory, const std::string& name, const std::string& shown);

  // Removes the leftover of an interrupted run of this program from the directory.
  void remove_leftover_from(const std::string& directory, const std::string& shown);

  void remove_file(const std::string& path, const std::string& shown);

  // Prints the total size on disk of the removed entries.
  void sum_up() const;

 private:
  void tell(const std::string& path, const std::string& shown);

  const bool is_dry;
  uint64_t freed = 0;
};

}  // namespace runenv
