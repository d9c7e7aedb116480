#include "socket/encoding.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/allocation.h"
#include "runtime/runtime_core.h"
#include "socket/first_exception.h"
#include "socket/message.h"

namespace SocketASync {

static void free_chunk(Chunk* chunk) {
  std::free(chunk->data);
  delete chunk;
}

void drop_chunk(ChunkedState* state) {
  Chunk* const chunk = state->completed;
  state->completed = chunk->next;
  state->ended = chunk->length == 0;
  free_chunk(chunk);
}

static void free_chunked_state(ChunkedState* state) {
  while (state->completed != nullptr) {
    drop_chunk(state);
  }
  if (state->current != nullptr) {
    free_chunk(state->current);
  }
  delete state;
}

void free_encoder_state(EncodingKind kind, void* state) {
  switch (kind) {
    case EncodingKind::None:
      break;
    case EncodingKind::ZeroTerminated:
      delete static_cast<ZeroTerminatedState*>(state);
      break;
    case EncodingKind::Chunked:
      free_chunked_state(static_cast<ChunkedState*>(state));
      break;
  }
}

void store_length(char (&header)[4], uint32_t length) {
  for (unsigned int i = 0; i < 4; ++i) {
    header[i] = static_cast<char>(length >> (24 - 8 * i));
  }
}

namespace Encoding {

static bool callback_runs(const Connection* connection) {
  switch (connection->encoding_kind) {
    case EncodingKind::None:
      break;
    case EncodingKind::ZeroTerminated:
      return static_cast<const ZeroTerminatedState*>(connection->encoder_state)->delivering;
    case EncodingKind::Chunked:
      return static_cast<const ChunkedState*>(connection->encoder_state)->streaming;
  }
  return false;
}

// Installs a decoder and frees the one before. One whose callback runs is in use until its
// `collect` returns, which finds it replaced and frees it.
static void install(Connection* connection, EncodingKind kind, void* state,
                    void (*collect)(const char*, unsigned int, void*, Connection*)) {
  if (!callback_runs(connection)) {
    free_encoder_state(connection->encoding_kind, connection->encoder_state);
  }
  connection->encoder_state = state;
  connection->encoding_kind = kind;
  connection->receiver = collect;
  connection->has_receiver = true;
}

// Gives what a replaced decoder leaves to the one that stands in its place.
static void pass_on(std::string&& bytes, Connection* connection) {
  if (!bytes.empty()) {
    connection->receiver(bytes.data(), static_cast<unsigned int>(bytes.size()),
                         connection->context_object, connection);
  }
}

void ZeroTerminated::create_encoding(Connection* connection,
                                     void (*callback)(Buffer*, void*, Connection*)) {
  auto* const state = new ZeroTerminatedState{callback, Buffer(0), false};
  install(connection, EncodingKind::ZeroTerminated, state, collect);
}

// A callback that throws leaves nothing of its message behind.
static void deliver(ZeroTerminatedState* state, Connection* connection) {
  if (genv_debug_verbose) {
    Runtime.log(RuntimeCore::SGR::Green, "Collected message on '%s' [%llu].\n",
                connection->name.c_str(), state->collected.length());
  }
  struct Delivering {
    ZeroTerminatedState* state;
    ~Delivering() {
      state->collected.release();
      state->collected.consumed = 0;  // the callback may have read from it
      state->delivering = false;
    }
  };
  const Delivering delivering{state};
  state->delivering = true;
  state->callback(&state->collected, connection->context_object, connection);
}

void ZeroTerminated::collect(const char* data, unsigned int length, void*, Connection* connection) {
  auto* const state = static_cast<ZeroTerminatedState*>(connection->encoder_state);
  const char* const end = data + length;
  FirstException failure;
  while (data != end && connection->encoder_state == state) {
    const size_t left = static_cast<size_t>(end - data);
    const char* const zero = static_cast<const char*>(std::memchr(data, 0, left));
    if (zero == nullptr) {
      state->collected.append(data, left);
      break;
    }
    state->collected.append(data, static_cast<size_t>(zero - data));
    data = zero + 1;
    failure.run([&] { deliver(state, connection); });
  }
  if (connection->encoder_state != state) {
    failure.run([&] { pass_on(std::string(data, end), connection); });
    delete state;
  }
  failure.rethrow();
}

void Chunked::create_encoding(Connection* connection, void (*callback)(void*, Message::Inbound*)) {
  auto* const state = new ChunkedState{};
  state->callback = callback;
  state->in_header = true;
  install(connection, EncodingKind::Chunked, state, collect);
}

static uint32_t filled(const Chunk* chunk) {
  return static_cast<uint32_t>(chunk->write_position - chunk->data);
}

// The size of a chunk's block once it holds `bytes`: doubling from 64 KiB, at most the chunk.
static uint32_t block_size(const Chunk* chunk, uint64_t bytes) {
  uint64_t size = uint64_t{64} * 1024;
  while (size < bytes) {
    size *= 2;
  }
  return static_cast<uint32_t>(std::min<uint64_t>(size, chunk->length));
}

// Copies up to `length` bytes into the chunk; returns how many.
static unsigned int fill_chunk(Chunk* chunk, const char* data, unsigned int length) {
  const uint32_t present = filled(chunk);
  const uint32_t n = std::min(length, chunk->length - present);
  const uint32_t wanted = block_size(chunk, uint64_t{present} + n);
  if (present == 0 || wanted != block_size(chunk, present)) {
    chunk->data = static_cast<char*>(runenv::reallocate(chunk->data, wanted));
    chunk->write_position = chunk->data + present;
  }
  std::memcpy(chunk->write_position, data, n);
  chunk->write_position += n;
  return n;
}

static unsigned int fill_header(ChunkedState* state, const char* data, unsigned int length) {
  const unsigned int n = std::min(length, 4 - state->header_count);
  std::memcpy(state->header + state->header_count, data, n);
  state->header_count += n;
  if (state->header_count == 4) {
    const unsigned char* h = state->header;
    const uint32_t chunk_length =
        uint32_t{h[0]} << 24 | uint32_t{h[1]} << 16 | uint32_t{h[2]} << 8 | h[3];
    state->in_header = false;
    state->current = new Chunk{nullptr, nullptr, chunk_length, nullptr};
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

// One message, from its first complete chunk on.
static void dispatch(ChunkedState* state, Connection* connection) {
  if (genv_debug_verbose) {
    Runtime.log(RuntimeCore::SGR::Yellow, "Connection '%s' new chunked message.\n",
                connection->name.c_str());
  }
  struct Streaming {
    ChunkedState* state;
    Message::Inbound* message;
    ~Streaming() {
      Message::finalize_inbound(message);
      state->streaming = false;
    }
  };
  const Streaming streaming{state, Message::create_inbound(connection)};
  state->streaming = true;
  state->ended = false;
  state->callback(connection->context_object, streaming.message);
}

// Drops what is there of a message whose callback has thrown.
static void skip(ChunkedState* state) {
  while (state->skipping && state->completed != nullptr) {
    drop_chunk(state);
    state->skipping = !state->ended;
  }
}

// What the decoder holds, as it came.
static std::string held_bytes(const ChunkedState* state) {
  std::string bytes;
  const auto append = [&bytes](const Chunk* chunk) {
    char header[4];
    store_length(header, chunk->length);
    bytes.append(header, sizeof header).append(chunk->data, filled(chunk));
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

void Chunked::collect(const char* data, unsigned int length, void*, Connection* connection) {
  auto* const state = static_cast<ChunkedState*>(connection->encoder_state);
  decode(state, data, length);
  if (state->streaming) {
    return;  // called by recv_chunk out of a running callback
  }
  FirstException failure;
  skip(state);
  while (state->completed != nullptr && connection->encoder_state == state) {
    if (!failure.run([&] { dispatch(state, connection); })) {
      state->skipping = !state->ended;
      skip(state);
    }
  }
  if (connection->encoder_state != state) {
    failure.run([&] { pass_on(held_bytes(state), connection); });
    free_chunked_state(state);
  }
  failure.rethrow();
}

}  // namespace Encoding
}  // namespace SocketASync
