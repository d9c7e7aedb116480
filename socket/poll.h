// The event loop of the layer. It accepts, reads, writes and closes.
#pragma once

#include <sys/select.h>

#include "socket/connection.h"

namespace SocketASync {

// Ignores SIGPIPE for the process, so that writing to a broken connection is an error.
void msg_init();

// The counterpart of msg_init. Does nothing.
void msg_shutdown();

// Makes one pass. Closes connections that have ended, waits up to `milliseconds` until a descriptor
// is ready, and serves all ready descriptors: reads once and writes once per connection, accepts
// one connection per listener, receives one datagram per endpoint. Calls the callbacks. An
// exception of a callback propagates and ends the pass early. Called from a callback, it prints a
// message and aborts.
void poll(unsigned int milliseconds);

// Polls until all queued output of the active connections has been sent. There is no time limit.
// Called from a callback while output is queued, it aborts as poll does. An exception of a callback
// propagates and ends the flush.
void flush();

// Reads once and writes once on one connection, as far as the sets allow. Returns false if the
// connection is lost.
bool service_connection(Connection* connection, fd_set* readable, fd_set* writable);

}  // namespace SocketASync
