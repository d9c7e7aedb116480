#include "socket/registry.h"

namespace SocketASync {

// Made right after Runtime and before any other static object, so they outlive all of those.
[[gnu::init_priority(102)]] state_t pending_state;
[[gnu::init_priority(102)]] state_t active_state;

}  // namespace SocketASync
