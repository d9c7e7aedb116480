// Internal: removing a connection from a running flush.
#pragma once

#include "socket/connection.h"

namespace runenv {

// Call this before freeing a connection: makes a running flush stop waiting for it.
void leave_flush(SocketASync::Connection* connection);

}  // namespace runenv
