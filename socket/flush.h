// Internal: what a running flush has to hear of.
#pragma once

#include "socket/connection.h"

namespace runenv {

// The connection is about to be freed: a flush that waits for it no longer does.
void leave_flush(SocketASync::Connection* connection);

}  // namespace runenv
