// Internal: accepting connections, with a pause after a failure.
#pragma once

#include <chrono>

#include "socket/listener.h"

namespace runenv {

// Accepts one connection, creates its record and calls the listener's factory. A failed accept also
// creates a connection, which is lost in the next pass.
void accept_connection(SocketASync::Listener* listener);

// Returns how long not to accept after a failed accept, 0 if there was none. Such a failure usually
// means that there are no free descriptors. The pending connection would end every wait at once, so
// poll does not wait for listeners during the pause.
std::chrono::microseconds accept_pause_left();

}  // namespace runenv
