// Outgoing connections over TCP/IPv4 and unix-domain paths.
#pragma once

#include <functional>

#include "socket/connection.h"

namespace SocketASync {

// A connection of our own making. Owned by the layer; mark_close is the way to end one.
struct Client : Connection {
  // Called once when the connection has ended, with the descriptor closed already and right before
  // the record is freed.
  std::function<void(void* context, Connection*)> closed;
};

// Connects to a numeric IPv4 address and a port, waiting for the handshake. Null on failure, which
// is reported on standard error (a refused connection only with genv_debug_info).
Client* create_client(const char* host, const char* port, void* context,
                      std::function<void(void* context, Connection*)> closed);

// Connects to a unix-domain path of at most 107 bytes; failures as above.
Client* create_client(const char* path, void* context,
                      std::function<void(void* context, Connection*)> closed);

}  // namespace SocketASync
