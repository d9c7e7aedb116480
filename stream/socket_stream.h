// The socket message variants of the streams. They read the chunks of an inbound message and write
// the chunks of an outbound message.
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

// A reader of an inbound message, which it borrows. A block is one chunk of any size.
class InstreamSockImpl final {
 public:
  // Reads the rest of `inbound`.
  explicit InstreamSockImpl(SocketASync::Message::Inbound* inbound);
  ~InstreamSockImpl();
  InstreamSockImpl(const InstreamSockImpl&) = delete;
  InstreamSockImpl& operator=(const InstreamSockImpl&) = delete;

  // The reader, which this object owns.
  InstreamCache* stream() { return &cache; }

  // Blocks until a chunk is complete, if the current one is used up. Throws Error as recv_chunk
  // does, and if a chunk is shorter than announced. Do not call it again after it has returned -1
  // at the end of the message: it would wait for the next message and read that.
  long long read_block(char* destination, unsigned count);

  // These two do not block: they use the rest of the current chunk.
  unsigned available_bytes() const { return block_remaining; }
  void collect(Buffer* target);

  SocketASync::Message::Inbound* message;  // the source
  char* block = nullptr;                   // malloc'ed, the current chunk; null at first
  char* position = nullptr;                // the next unread byte of the chunk
  uint32_t block_remaining = 0;            // number of unread bytes of the chunk
  InstreamCache cache;                     // the reader

 private:
  bool fetch_chunk();
};

// A writer of messages on a connection, which it borrows. Every full stage is sent as one chunk.
// Without finalize, the destructor sends the staged bytes but does not end the message.
class OutstreamSockImpl final {
 public:
  // Writes to `borrowed`, which must outlive the stream.
  explicit OutstreamSockImpl(SocketASync::Connection* borrowed);
  ~OutstreamSockImpl();
  OutstreamSockImpl(const OutstreamSockImpl&) = delete;
  OutstreamSockImpl& operator=(const OutstreamSockImpl&) = delete;

  // The writer, which this object owns.
  OutstreamCache* stream() { return &cache; }

  // Sends the staged bytes and ends the message, if one was begun. The next write begins another
  // message.
  void finalize();

  // Called by the writer's flush: sends `n` bytes as one chunk. Begins a message if there is none.
  void send_staged(const char* bytes, uint64_t n);

  SocketASync::Connection* connection;                // where the messages go
  SocketASync::Message::Outbound* message = nullptr;  // the message that was begun, or null
  OutstreamCache cache;                               // the writer
};
