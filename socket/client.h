// Outgoing connections over TCP/IPv4 and unix-domain paths.
#pragma once

#include <functional>

#include "socket/connection.h"

namespace SocketASync {

// An outgoing connection. It is owned by the layer. End it with mark_close.
struct Client : Connection {
  // Called once after the connection has ended. The descriptor is already closed. The record is
  // freed when the call returns.
  std::function<void(void* context, Connection*)> closed;
};

// Connects to a numeric IPv4 address and a port, which is a number or the name of a service. Blocks
// until the connection is established. On failure prints an error and returns null. A failed
// connect is printed only if genv_debug_info is true.
Client* create_client(const char* host, const char* port, void* context,
                      std::function<void(void* context, Connection*)> closed);

// Connects to a unix-domain path of at most 107 bytes. Fails as above.
Client* create_client(const char* path, void* context,
                      std::function<void(void* context, Connection*)> closed);

}  // namespace SocketASync
