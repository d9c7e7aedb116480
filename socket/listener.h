// Listening sockets over TCP/IPv4 and unix-domain paths.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "socket/connection.h"

namespace SocketASync {

// A listening socket. It is owned by the layer from its creation until destroy_listener. Each poll
// accepts at most one connection from it.
struct Listener {
  int32_t fd;  // the descriptor
  // Called for every accepted connection. Its result becomes the connection's context object. If it
  // throws, the connection is kept, with a null context object.
  //
  // It is also called if accepting fails, for example because there are no free descriptors. The
  // connection's descriptor is then -1, or not below FD_SETSIZE. The connection receives and sends
  // nothing and ends in the next pass. The error is printed, and accepting pauses for 10 ms. The
  // pause doubles with each further failure, up to 1 s, until accepting succeeds. If the peer is
  // already gone (EAGAIN), nothing is printed and there is no pause.
  std::function<void*(void* context, Connection*)> factory;
  // Called once after each connection has ended. The descriptor is already closed. The record is
  // freed when the call returns.
  std::function<void(void* connection_context, Connection*)> closed;
  std::vector<Connection*> connections;  // owned, in the order of accepting
  std::string name;                      // for log lines
  void* context;                         // passed to the factory, not owned
};

// Creates a TCP listener on a numeric IPv4 address (null: loopback) and a port, which is a number
// (0: any free port) or the name of a service. `name` is for log lines and may be null. On failure
// prints an error and returns null.
Listener* create_listener(const char* node, const char* service, const char* name, void* context,
                          std::function<void*(void* context, Connection*)> factory,
                          std::function<void(void* connection_context, Connection*)> closed);

// Creates a listener on a unix-domain path of at most 107 bytes. Removes an existing file at the
// path. On failure prints an error and returns null.
Listener* create_listener(const char* path, void* context,
                          std::function<void*(void* context, Connection*)> factory,
                          std::function<void(void* connection_context, Connection*)> closed);

// Ends a listener and its connections at once. Drops all queued output. Calls the closed callback
// for each connection; after the last one, throws the first exception that a callback threw. Does
// nothing for a listener that no poll has served yet or that is already being destroyed. Called
// from a factory, receiver or closed callback of the same listener, it prints a message and aborts.
void destroy_listener(Listener* listener);

}  // namespace SocketASync
