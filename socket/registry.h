// Which objects there are: those that poll serves, and those that wait for the next poll to take
// them up.
#pragma once

#include <vector>

namespace SocketASync {

struct Client;
struct EndPoint;
struct Listener;

// The objects in one of the two states.
struct state_t {
  std::vector<Listener*> listeners;  // accept connections
  std::vector<Client*> clients;      // connections that were made here
  std::vector<EndPoint*> endpoints;  // receive datagrams
};

// Both exist before main and are destroyed after it, without the objects in them.
extern state_t pending_state;  // made since the last poll
extern state_t active_state;   // served by poll

}  // namespace SocketASync
