// Removing directories so that nobody ever finds a part of one.
#pragma once

#include <cstdint>
#include <string>

namespace runenv {

// Removes what it is told to, unless it is a dry run; says so on standard output, and counts.
// The functions throw Error.
class Remover {
 public:
  explicit Remover(bool dry) : is_dry(dry) {}

  // Removes the entry `name` of the directory, which goes by `shown` in messages. The entry gets
  // a name such as ".runenv-prune#removing" first: whoever looks meanwhile, or after an
  // interruption, never takes a part for a whole.
  void remove_from(const std::string& directory, const std::string& name, const std::string& shown);

  // Removes what an interrupted run of this program has left in the directory.
  void remove_leftover_from(const std::string& directory, const std::string& shown);

  void remove_file(const std::string& path, const std::string& shown);

  // Says how much all of it takes, or took, on the disk.
  void sum_up() const;

 private:
  void tell(const std::string& path, const std::string& shown);

  const bool is_dry;
  uint64_t freed = 0;
};

}  // namespace runenv
