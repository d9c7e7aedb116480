#include "process/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

namespace runenv {

void open_standard_descriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) < 0) {
      // The lowest free number is this one. The direction is the one that nobody uses.
      open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
  }
}

}  // namespace runenv
