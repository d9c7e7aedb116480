#include "socket/registry.h"

namespace SocketASync {

// Made right after Runtime and before any other static object, so they outlive all of those.
[[gnu::init_priority(102)]] state_t pending_state;
[[gnu::init_priority(102)]] state_t active_state;
[[gnu::init_priority(102)]] std::set<Connection*> flushing;
Listener* served_listener = nullptr;

template <typename T>
static void promote(std::vector<T*>& pending, std::vector<T*>& active) {
  active.insert(active.end(), pending.begin(), pending.end());
  pending.clear();
}

void promote_pending() {
  promote(pending_state.listeners, active_state.listeners);
  promote(pending_state.clients, active_state.clients);
  promote(pending_state.endpoints, active_state.endpoints);
}

}  // namespace SocketASync
