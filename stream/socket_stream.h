// The socket message variants of the streams: they read the chunks of an inbound message and write
// chunks of an outbound one.
#pragma once

#include <cstdint>

#include "stream/instream.h"
#include "stream/outstream.h"

namespace SocketASync {
struct Connection;
namespace Message {
struct Inbound;
struct Outbound;
}  // namespace Message
}  // namespace SocketASync

// A reader over an inbound message, which it borrows. A block is one chunk, of whatever size.
class InstreamSockImpl final {
 public:
  // Reads what is left of `inbound`.
  explicit InstreamSockImpl(SocketASync::Message::Inbound* inbound);
  ~InstreamSockImpl();
  InstreamSockImpl(const InstreamSockImpl&) = delete;
  InstreamSockImpl& operator=(const InstreamSockImpl&) = delete;

  // The reader, which this object owns.
  InstreamCache* stream() { return &cache; }

  // Waits for a chunk where none is held. Throws Error as recv_chunk does, and when a chunk arrives
  // short. Do not call it again after the -1 at the message's end: it would wait for the next
  // message and read that.
  long long read_block(char* destination, unsigned count);

  // These two wait for nothing: they see the chunk that is held.
  unsigned available_bytes() const { return block_remaining; }
  void collect(Buffer* target);

  SocketASync::Message::Inbound* message;  // the source
  char* block = nullptr;                   // malloc'ed, the current chunk; null at first
  char* position = nullptr;                // the next unread byte of the chunk
  uint32_t block_remaining = 0;            // how many bytes of it are unread
  InstreamCache cache;                     // the reader

 private:
  bool fetch_chunk();
};

// A writer of messages on a connection, which it borrows. Every full stage is sent as one chunk.
// Destroyed without finalize, it sends what is staged but does not end the message.
class OutstreamSockImpl final {
 public:
  // Writes to `borrowed`, which must outlive the stream.
  explicit OutstreamSockImpl(SocketASync::Connection* borrowed);
  ~OutstreamSockImpl();
  OutstreamSockImpl(const OutstreamSockImpl&) = delete;
  OutstreamSockImpl& operator=(const OutstreamSockImpl&) = delete;

  // The writer, which this object owns.
  OutstreamCache* stream() { return &cache; }

  // Sends what is staged and ends the message, if one was begun. The next write begins another.
  void finalize();

  // The writer's part of a flush: sends `n` bytes as one chunk, of a new message where none is
  // begun.
  void send_staged(const char* bytes, uint64_t n);

  SocketASync::Connection* connection;                // where the messages go
  SocketASync::Message::Outbound* message = nullptr;  // the one that was begun, null: none
  OutstreamCache cache;                               // the writer
};
