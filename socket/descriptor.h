// Internal: sockets and their addresses.
#pragma once

#include <netdb.h>
#include <sys/select.h>
#include <sys/un.h>

#include <optional>

#include "core/owner.h"

namespace runenv {

using AddressList = owner<addrinfo, freeaddrinfo>;

struct UnixAddress {
  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address); }

  sockaddr_un address;
  unsigned int length;  // strlen + 2: without the terminator
};

// Returns whether `fd` fits in an fd_set, which select requires.
inline bool fits_descriptor_set(int fd) {
  return fd >= 0 && fd < FD_SETSIZE;
}

// Returns a new close-on-exec socket, or -1 with errno set. Fails with EMFILE if the descriptor
// does not fit in an fd_set.
unique_fd open_socket(int family, int type, int protocol);

// Looks up a numeric IPv4 address (null: loopback) and a port, a number up to 65535 or the name of
// a service. Returns 0 or an error for gai_strerror.
int look_up(const char* node, const char* service, AddressList* list);

// Makes the descriptor non-blocking and keeps its other flags.
void set_non_blocking(int fd);

// Sets TCP_NODELAY: poll sends the pieces of a message one by one, and none must wait for the
// acknowledgement of another. No effect on other sockets than TCP.
void set_no_delay(int fd);

// Returns the address of a unix-domain path, or none if the path is longer than 107 bytes.
std::optional<UnixAddress> unix_address(const char* path);

// Reports a path that is too long for a client or an endpoint.
void report_long_path(const char* path);

// Connects and blocks until connected, also if signals interrupt it. Returns 0, or -1 with errno
// set.
int connect_waiting(int fd, const sockaddr* address, unsigned int length);

}  // namespace runenv
