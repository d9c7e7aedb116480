// Which objects there are: those that poll serves, and those that wait for the next poll to take
// them up.
#pragma once

#include <vector>

namespace SocketASync {

struct Client;
struct EndPoint;
struct Listener;

struct state_t {
  std::vector<Listener*> listeners;
  std::vector<Client*> clients;
  std::vector<EndPoint*> endpoints;
};

// Both exist before main and are destroyed after it, without the objects in them.
extern state_t pending_state;  // made since the last poll
extern state_t active_state;   // served by poll

}  // namespace SocketASync
