// Which objects there are: those that poll serves, and those that wait for the next poll to take
// them up.
#pragma once

#include <set>
#include <vector>

namespace SocketASync {

struct Client;
struct Connection;
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

// Moves everything pending to the active registry.
void promote_pending();

// The listener that a running poll is at, null otherwise: it may not be destroyed.
extern Listener* served_listener;

// The connections that a running flush still waits for, empty otherwise. A connection that ends
// leaves on its own.
extern std::set<Connection*> flushing;

}  // namespace SocketASync
