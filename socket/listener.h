// Listening sockets over TCP/IPv4 and unix-domain paths.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "socket/connection.h"

namespace SocketASync {

// Owned by the layer from its creation to destroy_listener. Poll accepts for it, at most one
// connection a pass.
struct Listener {
  int32_t fd;  // the descriptor
  // Called for every accepted connection; its result becomes the connection's context object. If
  // it throws, the connection stays, with a null context object. It is also called when accepting
  // fails, say for want of descriptors: the connection then has the descriptor -1, receives and
  // sends nothing, and ends in the next pass. The error is reported with a dump, and accepting
  // pauses: for 10 ms at first, twice as long after each further failure, at most 1 s, until it
  // succeeds. A peer that has gone before it could be accepted (EAGAIN) causes neither.
  std::function<void*(void* context, Connection*)> factory;
  // Called once for every connection that has ended, with the descriptor closed already and right
  // before the record is freed.
  std::function<void(void* connection_context, Connection*)> closed;
  std::vector<Connection*> connections;  // owned, in the order of accepting
  std::string name;                      // for log lines
  void* context;                         // the user's object, given to the factory
};

// A TCP listener on a numeric IPv4 address (null: loopback) and a port. `name` is for log lines and
// may be null. Null on failure, which is reported on standard error.
Listener* create_listener(const char* node, const char* service, const char* name, void* context,
                          std::function<void*(void* context, Connection*)> factory,
                          std::function<void(void* connection_context, Connection*)> closed);

// A listener on a unix-domain path of at most 107 bytes; a file that stands there is removed first.
// Null on failure, which is reported on standard error.
Listener* create_listener(const char* path, void* context,
                          std::function<void*(void* context, Connection*)> factory,
                          std::function<void(void* connection_context, Connection*)> closed);

// Ends a listener and its connections at once, dropping what is queued; the closed callback runs
// for each, and the first exception out of it passes through once all have ended. A listener that
// no poll has taken up yet is left untouched, and so is one that ends already. Not to be called
// from a factory, receiver or closed callback of the same listener: that ends the program with a
// message.
void destroy_listener(Listener* listener);

}  // namespace SocketASync
