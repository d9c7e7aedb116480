#include "socket/registry.h"

namespace SocketASync {

// Constructed right after Runtime and before all other static objects, so they outlive those.
[[gnu::init_priority(102)]] state_t pending_state;
[[gnu::init_priority(102)]] state_t active_state;

}  // namespace SocketASync
