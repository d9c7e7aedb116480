// Internal: visiting the listeners, while callbacks make and destroy some.
#pragma once

#include "socket/listener.h"
#include "socket/registry.h"

namespace runenv {

// The listener that for_each_listener is at, null otherwise: it may not be destroyed now.
inline SocketASync::Listener* visited_listener = nullptr;

// Calls `visit` with every active listener, in order. A callback may destroy listeners before and
// after the one that is visited.
template <typename Visit>
void for_each_listener(const Visit& visit) {
  struct NoneAfterwards {
    ~NoneAfterwards() { visited_listener = nullptr; }
  };
  const NoneAfterwards none_afterwards;
  const auto& listeners = SocketASync::active_state.listeners;
  for (size_t i = 0; i < listeners.size(); ++i) {
    visited_listener = listeners[i];
    visit(visited_listener);
    while (i >= listeners.size() || listeners[i] != visited_listener) {
      --i;  // earlier ones have been destroyed
    }
  }
}

}  // namespace runenv
