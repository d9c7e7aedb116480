#include "socket/serving.h"

#include "socket/registry.h"

namespace runenv {

using SocketASync::Listener;

static Listener* visited = nullptr;

namespace {

struct NoneAfterwards {
  ~NoneAfterwards() { visited = nullptr; }
};

}  // namespace

void for_each_listener(const std::function<void(Listener*)>& visit) {
  const NoneAfterwards none_afterwards;
  const auto& listeners = SocketASync::active_state.listeners;
  for (size_t i = 0; i < listeners.size(); ++i) {
    visited = listeners[i];
    visit(visited);
    while (i >= listeners.size() || listeners[i] != visited) {
      --i;  // earlier ones have been destroyed
    }
  }
}

bool is_visited(const Listener* listener) {
  return listener == visited;
}

}  // namespace runenv
