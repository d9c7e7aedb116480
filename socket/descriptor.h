// Descriptors of the layer: select watches only those that fit its sets.
#pragma once

#include <sys/select.h>

struct addrinfo;
struct sockaddr;
struct sockaddr_un;

namespace SocketASync {

// Whether `fd` may stand in a descriptor set.
inline bool fits_descriptor_set(int fd) {
  return fd >= 0 && fd < FD_SETSIZE;
}

// A socket with close-on-exec set, or -1. One that does not fit a descriptor set could never be
// served: it counts as one descriptor too many (EMFILE).
int open_socket(int family, int type, int protocol);

// Looks up a numeric IPv4 address (null: loopback) and a port; 0, or what gai_strerror explains.
int look_up(const char* node, const char* service, addrinfo** list);

// Makes the descriptor non-blocking, keeping its other flags.
void set_non_blocking(int fd);

// Sends small pieces at once: poll sends a message in several, which must not wait for each other's
// acknowledgement. Without effect on sockets other than TCP.
void set_no_delay(int fd);

// Fills the address of a unix-domain path; false when the path is too long (108 bytes and more).
// `length` becomes the address length, strlen + 2: the terminator does not count.
bool set_unix_address(const char* path, sockaddr_un* address, unsigned int* length);

// Connects and waits for it, also across signals; 0, or -1 with errno.
int connect_waiting(int fd, const sockaddr* address, unsigned int length);

}  // namespace SocketASync
