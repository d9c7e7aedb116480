#include "socket/chunked.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/allocation.h"
#include "core/big_endian.h"
#include "runtime/runtime_core.h"
#include "socket/decoder.h"
#include "socket/first_exception.h"
#include "socket/message.h"

namespace SocketASync {

static constexpr uint32_t kHeaderSize = sizeof ChunkedState::header;
static constexpr uint64_t kFirstCapacity = uint64_t{64} * 1024;

static void free_chunk(Chunk* chunk) {
  std::free(chunk->data);
  delete chunk;
}

// Frees the first complete chunk.
static void drop_chunk(ChunkedState* state) {
  Chunk* const chunk = state->completed;
  state->completed = chunk->next;
  state->ended = chunk->length == 0;
  free_chunk(chunk);
}

static uint32_t filled(const Chunk* chunk) {
  return static_cast<uint32_t>(chunk->write_position - chunk->data);
}

// Makes room for `wanted` bytes. The capacity is a power of two from 64 KiB on, limited to the
// length of the chunk.
static void grow(Chunk* chunk, uint32_t wanted) {
  const uint32_t present = filled(chunk);
  const uint64_t doubled = std::max(kFirstCapacity, std::bit_ceil(uint64_t{wanted}));
  chunk->capacity = static_cast<uint32_t>(std::min<uint64_t>(doubled, chunk->length));
  chunk->data = static_cast<char*>(runenv::reallocate(chunk->data, chunk->capacity));
  chunk->write_position = chunk->data + present;
}

// Copies up to `length` bytes into the chunk and returns how many.
static unsigned int fill_chunk(Chunk* chunk, const char* data, unsigned int length) {
  const uint32_t present = filled(chunk);
  const uint32_t n = std::min(length, chunk->length - present);
  if (present + n > chunk->capacity) {
    grow(chunk, present + n);
  }
  std::memcpy(chunk->write_position, data, n);
  chunk->write_position += n;
  return n;
}

// Copies up to `length` bytes into the header and returns how many. A complete header begins a
// chunk.
static unsigned int fill_header(ChunkedState* state, const char* data, unsigned int length) {
  const unsigned int n = std::min(length, kHeaderSize - state->header_count);
  std::memcpy(state->header + state->header_count, data, n);
  state->header_count += n;
  if (state->header_count == kHeaderSize) {
    state->in_header = false;
    state->current = new Chunk{.length = runenv::read_big_endian(state->header)};
  }
  return n;
}

static void decode(ChunkedState* state, const char* data, unsigned int length) {
  Chunk** end = &state->completed;
  while (*end != nullptr) {
    end = &(*end)->next;
  }
  while (length != 0) {
    const unsigned int n = state->in_header ? fill_header(state, data, length)
                                            : fill_chunk(state->current, data, length);
    data += n;
    length -= n;
    if (!state->in_header && filled(state->current) == state->current->length) {
      *end = state->current;
      end = &state->current->next;
      state->current = nullptr;
      state->in_header = true;
      state->header_count = 0;
    }
  }
}

namespace {

// Exists while the callback runs for a message. Also cleans up if the callback throws.
struct Streaming {
  Streaming(ChunkedState* decoder, Connection* connection)
      : state(decoder), message(Message::create_inbound(connection)) {
    state->streaming = true;
    state->ended = false;
  }
  ~Streaming() {
    Message::finalize_inbound(message);
    state->streaming = false;
  }
  Streaming(const Streaming&) = delete;
  Streaming& operator=(const Streaming&) = delete;

  ChunkedState* state;
  Message::Inbound* message;
};

}  // namespace

// Calls the callback for the message that begins with the first complete chunk.
static void dispatch(ChunkedState* state, Connection* connection) {
  if (genv_debug_verbose) {
    Runtime.log(RuntimeCore::SGR::Yellow, "Connection '%s' new chunked message.\n",
                connection->name.c_str());
  }
  const Streaming streaming(state, connection);
  state->callback(connection->context_object, streaming.message);
}

// Drops the received part of a message whose callback has thrown.
static void skip(ChunkedState* state) {
  while (state->skipping && state->completed != nullptr) {
    drop_chunk(state);
    state->skipping = !state->ended;
  }
}

// Returns the unread bytes in the decoder, as they were received.
static std::string held_bytes(const ChunkedState* state) {
  std::string bytes;
  const auto append = [&bytes](const Chunk* chunk) {
    char header[kHeaderSize];
    runenv::write_big_endian(header, chunk->length);
    bytes.append(header, kHeaderSize).append(chunk->data, filled(chunk));
  };
  for (const Chunk* chunk = state->completed; chunk != nullptr; chunk = chunk->next) {
    append(chunk);
  }
  if (state->in_header) {
    bytes.append(state->header, state->header + state->header_count);
  } else {
    append(state->current);
  }
  return bytes;
}

namespace Encoding {

void Chunked::create_encoding(Connection* connection, void (*callback)(void*, Message::Inbound*)) {
  auto* const state = new ChunkedState{callback};
  runenv::install_decoder(connection, EncodingKind::Chunked, state, collect);
}

void Chunked::collect(const char* data, unsigned int length, void*, Connection* connection) {
  auto* const state = static_cast<ChunkedState*>(connection->encoder_state);
  decode(state, data, length);
  if (state->streaming) {
    return;  // recv_chunk in a running callback has called this
  }
  runenv::FirstException failure;
  skip(state);
  while (state->completed != nullptr && connection->encoder_state == state) {
    if (!failure.run([&] { dispatch(state, connection); })) {
      state->skipping = !state->ended;
      skip(state);
    }
  }
  if (connection->encoder_state != state) {
    failure.run([&] { runenv::pass_on(held_bytes(state), connection); });
    runenv::free_chunked_state(state);
  }
  failure.rethrow();
}

}  // namespace Encoding
}  // namespace SocketASync

namespace runenv {

using namespace SocketASync;

void free_chunked_state(ChunkedState* state) {
  while (state->completed != nullptr) {
    drop_chunk(state);
  }
  if (state->current != nullptr) {
    free_chunk(state->current);
  }
  delete state;
}

unsigned int take_chunk(ChunkedState* state, char* buffer, unsigned int capacity) {
  const unsigned int length = state->completed->length;
  if (length > capacity) {
    return length;
  }
  if (length != 0) {
    std::memcpy(buffer, state->completed->data, length);
  }
  drop_chunk(state);
  return length;
}

}  // namespace runenv
