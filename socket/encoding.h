// Messages out of the bytes of a connection.
//
// Zero-terminated: the message bytes, then one zero byte. Chunked: pieces of a 4-byte length, most
// significant byte first, and as many bytes; an empty piece ends the message.
//
// An encoding is installed on a connection in the listener's factory or right after the client is
// made, as a rule. Installing another one later replaces it and drops what it holds of an
// unfinished message. A message callback may do that too: it runs on to its end, and all that has
// been read and not been given to it goes to the new decoder. A chunked message is over with that:
// its recv_chunk no longer gives its chunks.
//
// When a message callback throws, the messages behind in the same read are delivered all the same.
// Then the first exception passes on, and later ones are lost.
#pragma once

#include <cstdint>

#include "core/buffer.h"
#include "socket/connection.h"

namespace SocketASync {

namespace Message {
struct Inbound;
}

struct ZeroTerminatedState {
  void (*callback)(Buffer* message, void* context, Connection* connection);
  Buffer collected;  // the message being received
  bool delivering;   // the callback is running for it
};

// A piece of a chunked message. Its block grows as bytes arrive, so that a peer that announces more
// than it sends costs no memory; that of a complete chunk has exactly its length.
struct Chunk {
  char* data;            // malloc'ed, null when nothing has arrived
  char* write_position;  // where the next byte goes
  uint32_t length;
  Chunk* next;  // the following complete chunk
};

struct ChunkedState {
  void (*callback)(void* context, Message::Inbound* message);
  Chunk* completed;  // the first complete chunk that is not read yet
  bool streaming;    // the callback is running for a message
  bool in_header;    // collecting the 4 length bytes of a chunk
  unsigned char header[4];
  uint32_t header_count;  // how many of them are there
  Chunk* current;         // the chunk being filled
  bool ended;             // the chunk taken last was the end of its message
  bool skipping;          // a callback has thrown: the rest of its message is dropped
};

// Frees what a connection's decoder holds.
void free_encoder_state(EncodingKind kind, void* state);

// Takes the first complete chunk out of the decoder and frees it.
void drop_chunk(ChunkedState* state);

// Writes the length of a chunk as it stands before it on the wire.
void store_length(char (&header)[4], uint32_t length);

namespace Encoding {

namespace ZeroTerminated {

// `callback` gets every message whole, without its zero byte; the buffer is the decoder's and valid
// during the call.
void create_encoding(Connection* connection,
                     void (*callback)(Buffer* message, void* context, Connection* connection));

// The receiver: feeds `length` bytes to the decoder.
void collect(const char* data, unsigned int length, void* context, Connection* connection);

}  // namespace ZeroTerminated

namespace Chunked {

// `callback` is called for every message once its first chunk is there, and reads the chunks with
// Message::Inbound::recv_chunk through the empty one. Chunks that it leaves unread when it returns
// are taken for a message of their own: a callback that takes none is called again at once, for
// ever. When it throws, the rest of its message is dropped, also what arrives later of it.
void create_encoding(Connection* connection,
                     void (*callback)(void* context, Message::Inbound* message));

// The receiver: feeds `length` bytes to the decoder and dispatches the messages that begin in them.
void collect(const char* data, unsigned int length, void* context, Connection* connection);

}  // namespace Chunked
}  // namespace Encoding
}  // namespace SocketASync
