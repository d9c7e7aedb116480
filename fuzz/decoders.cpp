// Both decoders: however the bytes are split, they give what a plain look at the whole gives.
#include <vector>

#include "fuzz/input.h"
#include "socket/socket_async.h"

using namespace SocketASync;
using Pieces = std::vector<std::string>;  // messages, or the chunks of all messages

static void on_message(Buffer* message, void* context, Connection*) {
  static_cast<Pieces*>(context)->emplace_back(message->get_unmanaged_array(), message->length());
}

// Takes the chunks that are complete: for more it would have to wait on a socket.
static void on_chunked(void* context, Message::Inbound* message) {
  const auto* state = static_cast<const ChunkedState*>(message->connection->encoder_state);
  while (state->completed != nullptr) {
    std::string chunk(state->completed->length, '\0');
    REQUIRE(chunk.empty() || message->recv_chunk(nullptr, 0) == chunk.size());
    REQUIRE(message->recv_chunk(chunk.data(), static_cast<unsigned>(chunk.size())) == chunk.size());
    static_cast<Pieces*>(context)->push_back(chunk);
  }
}

static Pieces look_at(const std::string& bytes, bool chunked) {
  Pieces pieces;
  for (size_t at = 0; at < bytes.size();) {
    size_t length, header = 0;
    if (chunked) {
      if (bytes.size() - at < 4) break;
      length = 0;
      for (size_t i = 0; i < 4; ++i) length = length << 8 | static_cast<uint8_t>(bytes[at + i]);
      header = 4;
    } else {
      length = bytes.find('\0', at);
      if (length == std::string::npos) break;
      length -= at;
    }
    if (bytes.size() - at - header < length) break;
    pieces.push_back(bytes.substr(at + header, length));
    at += header + length + (chunked ? 0 : 1);
  }
  return pieces;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const bool chunked = input.byte() % 2 != 0;
  const std::string splits = input.text(input.byte() % 16);
  std::string bytes = input.rest();
  Pieces pieces;
  Connection connection;
  connection.context_object = &pieces;
  if (chunked) {
    Encoding::Chunked::create_encoding(&connection, on_chunked);
  } else {
    Encoding::ZeroTerminated::create_encoding(&connection, on_message);
  }
  for (size_t at = 0, i = 0; at < bytes.size(); ++i) {
    const size_t wanted =
        splits.empty() ? bytes.size() : static_cast<uint8_t>(splits[i % splits.size()]);
    const size_t n = std::min(wanted, bytes.size() - at);
    connection.receiver(bytes.data() + at, static_cast<unsigned>(n), &pieces, &connection);
    at += std::max<size_t>(n, i % 2);  // an empty piece now and then, but not for ever
    if (n == 0 && i % 2 != 0) {
      connection.receiver(bytes.data() + at - 1, 1, &pieces, &connection);
    }
  }
  REQUIRE(pieces == look_at(bytes, chunked));
  return 0;
}
