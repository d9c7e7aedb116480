// Internal: operations on decoders.
#pragma once

#include <string>

#include "socket/chunked.h"
#include "socket/connection.h"

namespace runenv {

using DecoderReceiver = void (*)(const char* data, unsigned int length, void* context,
                                 SocketASync::Connection* connection);

// Installs a decoder and frees the previous one. If the callback of the previous one is running,
// its `collect` function frees it later.
void install_decoder(SocketASync::Connection* connection, SocketASync::EncodingKind kind,
                     void* state, DecoderReceiver collect);

// Passes the bytes that a replaced decoder has left to the new decoder.
void pass_on(std::string&& bytes, SocketASync::Connection* connection);

// Free a decoder and its content.
void free_encoder_state(SocketASync::EncodingKind kind, void* state);
void free_chunked_state(SocketASync::ChunkedState* state);

// Moves the first complete chunk, which must exist, into `buffer` and returns its length. If it is
// longer than `capacity`, returns its length and leaves it in place.
unsigned int take_chunk(SocketASync::ChunkedState* state, char* buffer, unsigned int capacity);

}  // namespace runenv
