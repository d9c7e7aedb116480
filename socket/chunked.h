// The chunked encoding. A chunk is a 4-byte big-endian length and as many bytes. An empty chunk
// ends the message.
#pragma once

#include <cstdint>

#include "socket/connection.h"

namespace SocketASync {

namespace Message {
struct Inbound;
}

// A chunk of a message. Its block grows as bytes arrive, so that a peer cannot cost memory by
// announcing more than it sends. The block of a complete chunk has exactly the chunk's length.
struct Chunk {
  char* data = nullptr;            // malloc'ed, null if nothing has arrived
  char* write_position = nullptr;  // where the next byte goes
  uint32_t length;                 // of the complete chunk, in bytes
  Chunk* next = nullptr;           // the following complete chunk
  uint32_t capacity = 0;           // bytes allocated
};

// The state of a connection's decoder.
struct ChunkedState {
  // Called for every message.
  void (*callback)(void* context, Message::Inbound* message);
  Chunk* completed = nullptr;    // the first complete chunk that is not yet read
  bool streaming = false;        // the callback is running
  bool in_header = true;         // collecting the 4 length bytes of a chunk
  unsigned char header[4] = {};  // the length bytes
  uint32_t header_count = 0;     // number of length bytes received
  Chunk* current = nullptr;      // the chunk being received
  bool ended = false;            // the last chunk that was read ended its message
  bool skipping = false;         // a callback has thrown: drop the rest of its message
};

// Messages that are read while they arrive.
namespace Encoding::Chunked {

// Installs the encoding. `callback` is called for every message as soon as the message's first
// chunk is complete. It must read all chunks, including the empty one, with
// Message::Inbound::recv_chunk. Chunks that it leaves unread are treated as a new message, so a
// callback that reads none is called again and again for ever. If the callback throws, the rest of
// its message is dropped, including what arrives later.
void create_encoding(Connection* connection,
                     void (*callback)(void* context, Message::Inbound* message));

// The receiver: passes `length` bytes to the decoder and calls the callback for each new message.
void collect(const char* data, unsigned int length, void* context, Connection* connection);

}  // namespace Encoding::Chunked
}  // namespace SocketASync
