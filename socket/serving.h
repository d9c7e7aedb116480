// Internal: iterating over the listeners while callbacks create and destroy listeners.
#pragma once

#include "socket/listener.h"
#include "socket/registry.h"

namespace runenv {

// The current listener of for_each_listener, or null. It must not be destroyed.
inline SocketASync::Listener* visited_listener = nullptr;

// Calls `visit` with every active listener, in order. A callback may destroy any listener except
// the current one.
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
      --i;  // earlier listeners have been destroyed
    }
  }
}

}  // namespace runenv
