// Fills the directory of a release elsewhere and moves it to its place when it is complete.
#pragma once

#include <sys/types.h>

#include "core/owner.h"
#include "fs/path.h"

namespace runenv {

// The name of the outer directory of a Staging. No release can have it, because it contains "#".
inline constexpr char kStagingName[] = ".runenv-verify#unpacking";

// A new directory for a release. It is created in an outer directory beside the release. Only this
// user may enter the outer directory. The destructor removes it. If the process is killed, the next
// Staging in the same place removes it. The functions throw Error with the path in front.
class Staging {
 public:
  // `path` is the place of the release. Throws Error if another process is unpacking there.
  explicit Staging(const fs::path_t& path);
  ~Staging();
  Staging(const Staging&) = delete;
  Staging& operator=(const Staging&) = delete;

  // The new directory, empty at first.
  const fs::path_t& directory() const { return inner; }

  // Throws Error unless the directory contains only files, directories, and links that stay in it.
  // Makes the directory writable for its owner.
  void check();

  // Moves the directory to its place in one step and restores the mode that it had at the check. A
  // directory that was there before is removed.
  void commit();

 private:
  void remove_content() const;

  const fs::path_t target;
  const fs::path_t outer;
  const fs::path_t inner;
  const unique_fd lock;  // on `outer`
  mode_t mode = 0;
};

}  // namespace runenv
