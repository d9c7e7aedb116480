// Both decoders: however the bytes are split, and whether they are fed to the decoder or fetched by
// it in the middle of a message, they give what a plain look at the whole gives.
#include <sys/socket.h>

#include <vector>

#include "core/error.h"
#include "core/owner.h"
#include "fuzz/input.h"
#include "socket/socket_async.h"

using namespace SocketASync;
using Pieces = std::vector<std::string>;  // messages, or the chunks of all messages

static void on_message(Buffer* message, void* context, Connection*) {
  static_cast<Pieces*>(context)->emplace_back(message->get_unmanaged_array(), message->length());
}

static void on_chunked(void* context, Message::Inbound* message) {
  auto& pieces = *static_cast<Pieces*>(context);
  do {
    const unsigned length = message->recv_chunk(nullptr, 0);
    pieces.emplace_back(length, '\0');
    REQUIRE(length == 0 || message->recv_chunk(pieces.back().data(), length) == length);
  } while (!pieces.back().empty());
}

static Pieces look_at(std::string bytes, bool chunked) {
  const size_t framing = chunked ? 4 : 1;
  Pieces pieces;
  while (bytes.size() >= framing) {
    size_t length = chunked ? 0 : bytes.find('\0');
    for (size_t i = 0; chunked && i < framing; ++i) {
      length = length << 8 | static_cast<uint8_t>(bytes[i]);
    }
    if (bytes.size() - framing < length) {
      break;
    }
    pieces.push_back(bytes.substr(chunked ? framing : 0, length));
    bytes.erase(0, framing + length);
  }
  return pieces;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const bool chunked = input.byte() % 2 != 0;
  const std::string splits = input.text(input.byte() % 64), bytes = input.text(size);
  int ends[2];
  REQUIRE(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) == 0);  // which keeps the pieces apart
  const runenv::unique_fd near(ends[0]), far(ends[1]);
  for (size_t at = 0, i = 0; at < bytes.size(); ++i) {
    const size_t wanted = i < splits.size() ? 1 + static_cast<uint8_t>(splits[i]) : 4096;
    const size_t n = std::min(wanted, bytes.size() - at);
    REQUIRE(send(far.get(), &bytes[at], n, 0) == static_cast<ssize_t>(n));
    at += n;
  }
  REQUIRE(shutdown(far.get(), SHUT_WR) == 0);
  Pieces pieces;
  Connection connection;
  connection.fd = near.get();
  connection.context_object = &pieces;
  if (chunked) {
    Encoding::Chunked::create_encoding(&connection, on_chunked);
  } else {
    Encoding::ZeroTerminated::create_encoding(&connection, on_message);
  }
  bool lost = false;
  try {
    char area[4096];
    for (ssize_t n; (n = recv(near.get(), area, sizeof area, 0)) > 0;) {
      std::vector<char> piece(area, area + n);  // nothing readable around it
      connection.receiver(piece.data(), static_cast<unsigned>(n), nullptr, &connection);
    }
  } catch (const Error&) {
    lost = true;
  }
  const Pieces expected = look_at(bytes, chunked);
  REQUIRE(pieces == expected && connection.marked_closed == lost);
  REQUIRE(lost == (chunked && !expected.empty() && !expected.back().empty()));
  return 0;
}
