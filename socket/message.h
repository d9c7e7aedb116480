// Messages on a connection: sending them, and reading chunked messages while they arrive.
#pragma once

#include "socket/connection.h"

namespace SocketASync {

// Blocks until bytes arrive on a non-blocking connection, reads up to `capacity` of them and
// returns how many. Returns 0 only for a capacity of 0. No other connection is served meanwhile.
// Throws Error if the peer closes the connection, which is then marked closed, on a socket error,
// and when the connection's timeout expires.
unsigned int recv_blocked(Connection* connection, char* buffer, unsigned int capacity);

// Messages in the encoding of their connection.
namespace Message {

// A message being received, valid until its chunked callback returns.
struct Inbound {
  Connection* connection;  // where it comes from

  // Blocks until the next chunk is complete, moves it into `buffer` and returns its length, or 0 at
  // the end of the message. If the length is greater than `capacity`, leaves the chunk in place:
  // call again with a larger buffer. To query the next length, call recv_chunk(nullptr, 0). On a
  // connection without the chunked encoding this is recv_blocked. Throws as recv_blocked does.
  unsigned int recv_chunk(char* buffer, unsigned int capacity);
};

// A message being sent, valid until finalize_outbound.
struct Outbound {
  Connection* connection;  // where it goes

  // Queues a copy of a piece of the message. Does nothing if the connection is marked closed. With
  // the chunked encoding, each piece becomes one chunk, an empty piece ends the message, and a
  // piece of 2^32-4 bytes or more throws Error. With the zero-terminated encoding, the bytes must
  // not contain a zero.
  void send_chunk(const char* data, unsigned int length);
};

// Create and free an inbound message. The chunked decoder does this for its callback.
Inbound* create_inbound(Connection* connection);
void finalize_inbound(Inbound* message);

// Create an outbound message; queue its end and free it.
Outbound* create_outbound(Connection* connection);
void finalize_outbound(Outbound* message);

}  // namespace Message
}  // namespace SocketASync
