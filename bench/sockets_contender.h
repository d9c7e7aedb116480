// The common part of the servers in the socket benchmark: addresses and services.
#pragma once

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/big_endian.h"

// A unix path or, if that is empty, a port of the loopback interface.
struct Address {
  std::string path;
  uint16_t port = 0;
};

// What a server sends back: bytes as they arrive, whole zero-terminated messages, or whole chunks
// (a 4-byte big-endian length and as many bytes).
enum class Service { Bytes, Messages, Chunks };

// A server. It runs until its process is killed.
using Server = void (*)(const Address&, Service);

// Ends the process if a step has failed.
inline void require(bool done, const char* step) {
  if (!done) {
    std::perror(step);
    std::_Exit(1);
  }
}

// Calls `operation`, bind or connect, with the address.
inline int at_address(int (*operation)(int, const sockaddr*, socklen_t), int fd,
                      const Address& address) {
  sockaddr_un local{AF_UNIX, {}};
  const sockaddr_in loopback{AF_INET, htons(address.port), {htonl(INADDR_LOOPBACK)}, {}};
  address.path.copy(local.sun_path, sizeof local.sun_path - 1);
  return address.path.empty()
             ? operation(fd, reinterpret_cast<const sockaddr*>(&loopback), sizeof loopback)
             : operation(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local);
}

inline int open_socket(const Address& address) {
  const int fd = socket(address.path.empty() ? AF_INET : AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  require(fd >= 0, "socket");
  return fd;
}

inline void send_at_once(int fd, const Address& address) {
  const int on = 1;
  if (address.path.empty()) {
    require(setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) == 0, "TCP_NODELAY");
  }
}

// Returns a listening socket, for servers that take one.
inline int listen_at(const Address& address) {
  const int fd = open_socket(address);
  const int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  require(at_address(bind, fd, address) == 0, "bind");
  require(listen(fd, SOMAXCONN) == 0, "listen");
  return fd;
}
