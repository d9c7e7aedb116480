// Messages on a connection: sending them, and reading chunked ones while they arrive.
#pragma once

#include "socket/connection.h"

namespace SocketASync {

// Waits for up to `capacity` bytes on a non-blocking connection and returns how many came; 0 only
// for a capacity of 0. Nothing else is served meanwhile. Throws Error when the peer closes (the
// connection is then marked closed), on a socket error, and when the connection's timeout expires.
unsigned int recv_blocked(Connection* connection, char* buffer, unsigned int capacity);

// Messages, of the encoding that the connection has.
namespace Message {

// A message being received, valid while the chunked callback that got it runs.
struct Inbound {
  Connection* connection;  // where it comes from

  // Waits for the next chunk, takes it into `buffer` and returns its length; 0 is the end of the
  // message. A result above `capacity` is the length of a chunk that was left in place: call again
  // with as much room. To query the next length, call it with (nullptr, 0). On a connection without
  // chunks it is recv_blocked. Throws as that does.
  unsigned int recv_chunk(char* buffer, unsigned int capacity);
};

// A message being sent, until finalize_outbound.
struct Outbound {
  Connection* connection;  // where it goes

  // Queues a piece of the message; nothing on a connection that is marked closed. On a chunked
  // connection it is a chunk of its own, and an empty one ends the message there; throws Error for
  // 2^32-4 bytes and more, which the format has no room for. On a zero-terminated one the bytes
  // must not contain a zero.
  void send_chunk(const char* data, unsigned int length);
};

// The chunked decoder makes and ends the inbound messages that it hands to its callback.
Inbound* create_inbound(Connection* connection);
void finalize_inbound(Inbound* message);

// finalize_outbound queues the end of the message and frees it.
Outbound* create_outbound(Connection* connection);
void finalize_outbound(Outbound* message);

}  // namespace Message
}  // namespace SocketASync
