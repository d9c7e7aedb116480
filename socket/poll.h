// The loop of the layer: the one place where it accepts, reads, writes and closes.
#pragma once

#include <sys/select.h>

#include "socket/connection.h"

namespace SocketASync {

// Makes writing to a broken connection an error instead of a SIGPIPE for the process.
void msg_init();

// The counterpart of msg_init; there is nothing to undo.
void msg_shutdown();

// One pass: waits up to `milliseconds` for any descriptor to become ready, then serves what is:
// accepts one connection per listener, reads once and writes once per connection, receives one
// datagram per endpoint, and closes what has ended. Callbacks run in here; what they throw passes
// through and leaves the pass unfinished. Not to be called from a callback: that ends the program
// with a message.
void poll(unsigned int milliseconds);

// Polls until all output queued on active connections has gone out; without a time limit. Not to be
// called from a callback either. What a callback throws passes through and ends the flush.
void flush();

// Reads from and writes to one connection as the sets allow, once each; false when it is lost.
bool service_connection(Connection* connection, fd_set* readable, fd_set* writable);

}  // namespace SocketASync
