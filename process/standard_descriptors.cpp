#include "process/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

namespace runenv {

void open_standard_descriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) < 0) {
      // open returns the lowest free number, which is `fd`. The access mode is the wrong one on
      // purpose, so that reading and writing fail.
      open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
  }
}

}  // namespace runenv
