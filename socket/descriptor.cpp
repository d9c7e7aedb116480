#include "socket/descriptor.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace SocketASync {

int open_socket(int family, int type, int protocol) {
  const int fd = socket(family, type | SOCK_CLOEXEC, protocol);
  if (fd >= 0 && !fits_descriptor_set(fd)) {
    close(fd);
    errno = EMFILE;
    return -1;
  }
  return fd;
}

int look_up(const char* node, const char* service, addrinfo** list) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST;
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  *list = nullptr;
  return getaddrinfo(node, service, &hints, list);
}

void set_non_blocking(int fd) {
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

void set_no_delay(int fd) {
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

bool set_unix_address(const char* path, sockaddr_un* address, unsigned int* length) {
  const size_t path_length = std::strlen(path);
  if (path_length >= sizeof address->sun_path) {
    return false;
  }
  *address = sockaddr_un{};
  address->sun_family = AF_UNIX;
  std::memcpy(address->sun_path, path, path_length);
  *length = static_cast<unsigned int>(path_length + 2);
  return true;
}

int connect_waiting(int fd, const sockaddr* address, unsigned int length) {
  int result;
  do {
    result = connect(fd, address, length);
  } while (result != 0 && errno == EINTR);  // the handshake goes on; connecting again waits for it
  return result != 0 && errno == EISCONN ? 0 : result;
}

}  // namespace SocketASync
