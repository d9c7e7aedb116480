// Internal: descriptors of the layer, and the addresses that they are bound and connected to.
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
  unsigned int length;  // strlen + 2: the terminator does not count
};

// Whether `fd` may stand in a descriptor set: select watches no other.
inline bool fits_descriptor_set(int fd) {
  return fd >= 0 && fd < FD_SETSIZE;
}

// A socket with close-on-exec set, or -1. One that does not fit a descriptor set could never be
// served: it counts as one descriptor too many (EMFILE).
unique_fd open_socket(int family, int type, int protocol);

// Looks up a numeric IPv4 address (null: loopback) and a port; 0, or what gai_strerror explains.
int look_up(const char* node, const char* service, AddressList* list);

// Makes the descriptor non-blocking, keeping its other flags.
void set_non_blocking(int fd);

// Sends small pieces at once: poll sends the pieces of a message one by one, and none is to wait
// for the acknowledgement of another. Without effect on sockets other than TCP.
void set_no_delay(int fd);

// The address of a unix-domain path; none when the path is too long (108 bytes and more).
std::optional<UnixAddress> unix_address(const char* path);

// Reports a path that is too long for a client or an endpoint.
void report_long_path(const char* path);

// Connects and waits for it, also across signals; 0, or -1 with errno.
int connect_waiting(int fd, const sockaddr* address, unsigned int length);

}  // namespace runenv
