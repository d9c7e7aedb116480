// Internal: the decoders as only the layer itself may use them.
#pragma once

#include <string>

#include "socket/chunked.h"
#include "socket/connection.h"

namespace runenv {

using DecoderReceiver = void (*)(const char* data, unsigned int length, void* context,
                                 SocketASync::Connection* connection);

// Installs a decoder and frees the one before. One whose callback runs is in use until its
// `collect` returns, which finds it replaced and frees it.
void install_decoder(SocketASync::Connection* connection, SocketASync::EncodingKind kind,
                     void* state, DecoderReceiver collect);

// Gives what a replaced decoder leaves to the one that stands in its place.
void pass_on(std::string&& bytes, SocketASync::Connection* connection);

// Frees a decoder with what it holds.
void free_encoder_state(SocketASync::EncodingKind kind, void* state);
void free_chunked_state(SocketASync::ChunkedState* state);

// Takes the first complete chunk, which must be there, and returns its length. A chunk that is
// longer than `capacity` stays.
unsigned int take_chunk(SocketASync::ChunkedState* state, char* buffer, unsigned int capacity);

}  // namespace runenv
