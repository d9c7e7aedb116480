// The directory of a release, filled beside its place and put there when it is complete.
#pragma once

#include <sys/types.h>

#include "core/owner.h"
#include "fs/path.h"

namespace runenv {

// A new directory for a release. It is made in another one beside the release's, which only this
// user may enter. The destructor removes that, and so does the next Staging in the same place if
// this one is killed. The functions throw Error with the path in front.
class Staging {
 public:
  // The release is to take the place at `path`. Throws Error if another process is at it.
  explicit Staging(const fs::path_t& path);
  ~Staging();
  Staging(const Staging&) = delete;
  Staging& operator=(const Staging&) = delete;

  // The new directory, empty at first.
  const fs::path_t& directory() const { return inner; }

  // Throws Error unless all that is in the directory is a file, a directory, or a link that leads
  // to somewhere in it. After it the owner may write to the directory.
  void check();

  // Puts the directory in its place, in one step, with the mode that it had when it was checked.
  // What was there is removed.
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
