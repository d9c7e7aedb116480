// The chunked encoding: pieces of a 4-byte length, most significant byte first, and as many bytes.
// An empty piece ends the message.
#pragma once

#include <cstdint>

#include "socket/connection.h"

namespace SocketASync {

namespace Message {
struct Inbound;
}

// A piece of a chunked message. Its block grows as bytes arrive, so that a peer that announces more
// than it sends costs no memory; that of a complete chunk has exactly its length.
struct Chunk {
  char* data = nullptr;            // malloc'ed, null when nothing has arrived
  char* write_position = nullptr;  // where the next byte goes
  uint32_t length;                 // bytes, once it is complete
  Chunk* next = nullptr;           // the following complete chunk
  uint32_t capacity = 0;           // bytes allocated
};

// The decoder of a connection: what of a message has come, and what its callback has taken.
struct ChunkedState {
  // Called for every message.
  void (*callback)(void* context, Message::Inbound* message);
  Chunk* completed = nullptr;    // the first complete chunk that is not read yet
  bool streaming = false;        // the callback is running for a message
  bool in_header = true;         // collecting the 4 length bytes of a chunk
  unsigned char header[4] = {};  // those bytes
  uint32_t header_count = 0;     // how many of them are there
  Chunk* current = nullptr;      // the chunk being filled
  bool ended = false;            // the chunk taken last was the end of its message
  bool skipping = false;         // a callback has thrown: the rest of its message is dropped
};

// Messages of pieces that are read while they arrive.
namespace Encoding::Chunked {

// `callback` is called for every message once its first chunk is there, and reads the chunks with
// Message::Inbound::recv_chunk through the empty one. Chunks that it leaves unread when it returns
// are taken for a message of their own: a callback that takes none is called again at once, for
// ever. When it throws, the rest of its message is dropped, also what arrives later of it.
void create_encoding(Connection* connection,
                     void (*callback)(void* context, Message::Inbound* message));

// The receiver: feeds `length` bytes to the decoder and dispatches the messages that begin in them.
void collect(const char* data, unsigned int length, void* context, Connection* connection);

}  // namespace Encoding::Chunked
}  // namespace SocketASync
