// Internal: accepting connections, which pauses when it fails.
#pragma once

#include <chrono>

#include "socket/listener.h"

namespace runenv {

// Accepts one connection, makes its record and calls the listener's factory. A failed accept makes
// a connection all the same, which is lost in the next pass.
void accept_connection(SocketASync::Listener* listener);

// How long nothing is to be accepted. Accepting has failed then, as a rule for want of descriptors.
// What waits to be accepted would end every wait at once, so the waits leave the listeners out.
std::chrono::microseconds accept_pause_left();

}  // namespace runenv
