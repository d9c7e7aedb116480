// Both decoders: they must produce the same pieces as a simple parser of all bytes, however the
// bytes are split, and whether poll or recv_chunk reads them. This also holds when a callback
// throws (at the piece "!", before it reads a chunk of 7 bytes, and at the end of a message after
// "?") and when it installs the other encoding (at "~").
#include <sys/socket.h>

#include <vector>

#include "core/error.h"
#include "core/owner.h"
#include "fuzz/input.h"
#include "socket/socket_async.h"

using namespace SocketASync;
using Pieces = std::vector<std::string>;  // messages, or the chunks of all messages

static void install(Connection* connection, bool chunked);

static int rejections = 0;  // exceptions during one read

static void take(const std::string& piece, Connection* connection) {
  auto& pieces = *static_cast<Pieces*>(connection->context_object);
  const bool after_question = piece.empty() && !pieces.empty() && pieces.back() == "?";
  pieces.push_back(piece);
  if (piece == "~") install(connection, connection->encoding_kind != EncodingKind::Chunked);
  if (piece == "!" || after_question) throw ++rejections;
}

static void on_message(Buffer* message, void*, Connection* connection) {
  const std::string text(message->get_unmanaged_array(), message->length());
  message->consume(text.size());  // a callback may do this
  take(text, connection);
}

static void on_chunked(void*, Message::Inbound* message) {
  std::string piece;
  do {
    piece.assign(message->recv_chunk(nullptr, 0), '\0');
    const auto length = static_cast<unsigned>(piece.size());
    if (length == 7) throw ++rejections;
    REQUIRE(length == 0 || message->recv_chunk(piece.data(), length - 1) == length);  // no room
    REQUIRE(length == 0 || message->recv_chunk(piece.data(), length) == length);
    take(piece, message->connection);
  } while (!piece.empty() && piece != "~");
}

static void install(Connection* connection, bool chunked) {
  if (chunked) return Encoding::Chunked::create_encoding(connection, on_chunked);
  Encoding::ZeroTerminated::create_encoding(connection, on_message);
}

// Parses the bytes and returns the pieces. Sets `*open` if they end within a chunked message whose
// callback would wait for more.
static Pieces look_at(std::string bytes, bool chunked, bool* open) {
  Pieces pieces;
  bool skipping = false;
  *open = false;
  for (size_t framing; bytes.size() >= (framing = chunked ? 4 : 1);) {
    size_t length = chunked ? 0 : bytes.find('\0');
    for (size_t i = 0; chunked && i < framing; ++i) {
      length = length << 8 | static_cast<uint8_t>(bytes[i]);
    }
    if (bytes.size() - framing < length) break;
    const std::string piece = bytes.substr(chunked ? framing : 0, length);
    bytes.erase(0, framing + length);
    if (!skipping) {
      skipping = chunked && (piece == "!" || length == 7);
      if (length != 7 || !chunked) pieces.push_back(piece);
      chunked = chunked != (piece == "~");
      *open = chunked && !skipping && !piece.empty() && piece != "~";
    } else {
      skipping = !piece.empty();
    }
  }
  return pieces;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const bool chunked = input.byte() % 2 != 0;
  const std::string splits = input.text(input.byte() % 64), bytes = input.text(size);
  int ends[2];
  REQUIRE(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) == 0);  // keeps the pieces separate
  const runenv::unique_fd near(ends[0]), far(ends[1]);
  for (size_t at = 0, i = 0; at < bytes.size(); ++i) {
    const std::string sent = bytes.substr(at, i < splits.size() ? 1 + uint8_t(splits[i]) : 4096);
    REQUIRE(send(far.get(), sent.data(), sent.size(), 0) == std::ssize(sent));
    at += sent.size();
  }
  REQUIRE(shutdown(far.get(), SHUT_WR) == 0);
  Pieces pieces;
  Connection connection;
  connection.fd = near.get();
  connection.context_object = &pieces;
  install(&connection, chunked);
  char area[4096];
  for (ssize_t n; (n = recv(near.get(), area, sizeof area, 0)) > 0;) {
    std::vector<char> piece(area, area + n);  // a sanitizer detects reads beyond it
    rejections = 0;
    try {
      connection.receiver(piece.data(), static_cast<unsigned>(n), nullptr, &connection);
      REQUIRE(rejections == 0);
    } catch (int number) {
      REQUIRE(number == 1);   // the first exception is rethrown
    } catch (const Error&) {  // the bytes end inside a message
    }
  }
  bool open;
  REQUIRE(pieces == look_at(bytes, chunked, &open) && connection.marked_closed == open);
  return 0;
}
