#include "socket/descriptor.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "core/retry.h"
#include "runtime/runtime_core.h"

namespace runenv {

unique_fd open_socket(int family, int type, int protocol) {
  unique_fd fd(socket(family, type | SOCK_CLOEXEC, protocol));
  if (fd.get() >= FD_SETSIZE) {
    fd.reset();
    errno = EMFILE;
  }
  return fd;
}

// getaddrinfo takes the low 16 bits of any number as a port.
static bool is_too_large_port(const char* service) {
  char* end = nullptr;
  return service != nullptr && std::strtoul(service, &end, 10) > UINT16_MAX && *end == '\0';
}

int look_up(const char* node, const char* service, AddressList* list) {
  if (is_too_large_port(service)) {
    return EAI_SERVICE;
  }
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST;
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int result = getaddrinfo(node, service, &hints, &found);
  list->reset(found);
  return result;
}

void set_non_blocking(int fd) {
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

void set_no_delay(int fd) {
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

std::optional<UnixAddress> unix_address(const char* path) {
  UnixAddress result{};
  const size_t path_length = std::strlen(path);
  if (path_length >= sizeof result.address.sun_path) {
    return std::nullopt;
  }
  result.address.sun_family = AF_UNIX;
  std::memcpy(result.address.sun_path, path, path_length);
  result.length = static_cast<unsigned int>(path_length + 2);
  return result;
}

void report_long_path(const char* path) {
  // The spelling "to long" is kept: scripts look for this message. Listeners print "too long".
  Runtime.error("Unix domain socket path is to long (%ld)!\n",
                static_cast<long>(std::strlen(path)));
}

int connect_waiting(int fd, const sockaddr* address, unsigned int length) {
  // After a signal the handshake goes on, and the next connect waits for it.
  const int result = retry([=] { return connect(fd, address, length); });
  return result != 0 && errno == EISCONN ? 0 : result;
}

}  // namespace runenv
