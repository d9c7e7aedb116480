// Internal: visiting the listeners, while callbacks make and destroy some.
#pragma once

#include <functional>

#include "socket/listener.h"

namespace runenv {

// Calls `visit` with every active listener, in order. A callback may destroy listeners before and
// after the one that is visited.
void for_each_listener(const std::function<void(SocketASync::Listener*)>& visit);

// Whether a visit is at this listener: it may not be destroyed now.
bool is_visited(const SocketASync::Listener* listener);

}  // namespace runenv
