// Both decoders: however the bytes are split, and whether they are fed to the decoder or fetched by
// it, they give what a plain look at the whole gives.
#include <sys/socket.h>

#include <vector>

#include "core/error.h"
#include "core/unique_fd.h"
#include "fuzz/input.h"
#include "socket/socket_async.h"

using namespace SocketASync;
using Pieces = std::vector<std::string>;  // messages, or the chunks of all messages

enum Kind { kZeroTerminated, kChunked, kChunkedFromSocket };
static Kind kind;

static void on_message(Buffer* message, void* context, Connection*) {
  static_cast<Pieces*>(context)->emplace_back(message->get_unmanaged_array(), message->length());
}

// Takes the chunks that are complete; with a socket, the whole message.
static void on_chunked(void* context, Message::Inbound* message) {
  const auto* state = static_cast<const ChunkedState*>(message->connection->encoder_state);
  for (bool more = true; more && (kind == kChunkedFromSocket || state->completed != nullptr);) {
    std::string chunk(message->recv_chunk(nullptr, 0), '\0');
    more = !chunk.empty();
    const auto length = static_cast<unsigned>(chunk.size());
    REQUIRE(!more || message->recv_chunk(chunk.data(), length) == length);
    static_cast<Pieces*>(context)->push_back(chunk);
  }
}

static Pieces look_at(std::string bytes) {
  Pieces pieces;
  for (;;) {
    const size_t header = kind == kZeroTerminated ? 0 : 4;
    size_t length = header == 0 ? bytes.find('\0') : 0;
    if (length == std::string::npos || bytes.size() < header) {
      return pieces;
    }
    for (size_t i = 0; i < header; ++i) {
      length = length << 8 | static_cast<uint8_t>(bytes[i]);
    }
    if (bytes.size() - header < length) {
      return pieces;
    }
    pieces.push_back(bytes.substr(header, length));
    bytes.erase(0, header + length + (header == 0 ? 1 : 0));
  }
}

static void feed(Connection* connection, const std::string& bytes, const std::string& splits) {
  for (size_t at = 0, i = 0; at < bytes.size(); ++i) {
    const size_t turn = splits.empty() ? 0 : i % splits.size();
    const size_t wanted = splits.empty() ? bytes.size() : static_cast<uint8_t>(splits[turn]);
    // Pieces may be empty, but not all of them.
    const size_t n = std::min(wanted + (turn == 0), bytes.size() - at);
    std::vector<char> piece(&bytes[at], &bytes[at] + n);  // nothing readable around it
    connection->receiver(piece.data(), static_cast<unsigned>(n), nullptr, connection);
    at += n;
  }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  kind = static_cast<Kind>(input.byte() % 3);
  // A decoder that fetches gets in one piece what has come before.
  const std::string splits = input.text(kind == kChunkedFromSocket ? 0 : input.byte() % 16);
  const std::string fed = input.text(kind == kChunkedFromSocket ? input.byte() : size);
  const std::string sent = input.text(size);
  int ends[2];
  REQUIRE(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
  const unique_fd near(ends[0]), far(ends[1]);
  REQUIRE(send(far.get(), sent.data(), sent.size(), 0) == static_cast<ssize_t>(sent.size()));
  REQUIRE(shutdown(far.get(), SHUT_WR) == 0);
  Pieces pieces;
  Connection connection;
  connection.fd = near.get();
  connection.context_object = &pieces;
  if (kind == kZeroTerminated) {
    Encoding::ZeroTerminated::create_encoding(&connection, on_message);
  } else {
    Encoding::Chunked::create_encoding(&connection, on_chunked);
  }
  bool lost = false;
  try {
    feed(&connection, fed, splits);
    std::string left(sent.size() + 1, '\0');  // as polling finds it
    left.resize(static_cast<size_t>(recv(near.get(), left.data(), left.size(), 0)));
    feed(&connection, left, splits);
  } catch (const Error&) {
    lost = true;
  }
  const Pieces expected = look_at(fed + sent);
  REQUIRE(pieces == expected && connection.marked_closed == lost);
  REQUIRE(lost == (kind == kChunkedFromSocket && !expected.empty() && !expected.back().empty()));
  return 0;
}
