// The objects of the layer: those that poll serves, and those that the next poll adds to them.
#pragma once

#include <vector>

namespace SocketASync {

struct Client;
struct EndPoint;
struct Listener;

// The objects in one state.
struct state_t {
  std::vector<Listener*> listeners;  // listening sockets
  std::vector<Client*> clients;      // outgoing connections
  std::vector<EndPoint*> endpoints;  // datagram endpoints
};

// Constructed before main and destroyed after it. The objects in them are not freed.
extern state_t pending_state;  // created since the last poll
extern state_t active_state;   // served by poll

}  // namespace SocketASync
