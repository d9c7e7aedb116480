#include "socket/message.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/big_endian.h"
#include "core/error.h"
#include "core/failure.h"
#include "core/retry.h"
#include "runtime/runtime_core.h"
#include "socket/decoder.h"

namespace SocketASync {

// The size of a chunk including its 4-byte length must fit in 32 bits.
static constexpr uint32_t kChunkLimit = UINT32_MAX - 3;

static char chunk_read_buffer[4096];

// Waits until the connection is readable. Throws when its timeout expires. Signals do not prolong
// the timeout.
static void wait_readable(const Connection* connection) {
  using Clock = std::chrono::steady_clock;
  using std::chrono::seconds, std::chrono::nanoseconds;
  const auto deadline = Clock::now() + seconds(connection->timeout);
  pollfd waited{.fd = connection->fd, .events = POLLIN, .revents = 0};
  const int ready = runenv::retry([&] {
    const nanoseconds left = std::max(Clock::duration::zero(), deadline - Clock::now());
    const auto whole = std::chrono::floor<seconds>(left);
    const timespec limit{whole.count(), (left - whole).count()};
    return ppoll(&waited, 1, connection->timeout == 0 ? nullptr : &limit, nullptr);
  });
  if (ready < 0) {
    runenv::throw_system_failure(errno);
  }
  if (ready == 0) {
    runenv::throw_failure("Timeout expired while waiting for blocking socket read");
  }
}

unsigned int recv_blocked(Connection* connection, char* buffer, unsigned int capacity) {
  if (capacity == 0) {
    return 0;  // recv would return 0, as if the peer had closed the connection
  }
  for (;;) {
    const ssize_t n = recv(connection->fd, buffer, capacity, 0);
    if (n > 0) {
      return static_cast<unsigned int>(n);
    }
    if (n == 0) {
      mark_close(connection);
      runenv::throw_failure("Connection lost when reading a message");
    }
    const int error_number = errno;
    if (report_socket_error("recv_blocked", connection, error_number)) {
      runenv::throw_system_failure(error_number);
    }
    wait_readable(connection);
  }
}

namespace Message {

unsigned int Inbound::recv_chunk(char* buffer, unsigned int capacity) {
  switch (connection->encoding_kind) {
    case EncodingKind::None:
    case EncodingKind::ZeroTerminated:
      return recv_blocked(connection, buffer, capacity);
    case EncodingKind::Chunked:
      break;
    default:
      throw Error(Error::Type::Internal, "Socket has an unknown encoding\n");
  }
  auto* const state = static_cast<ChunkedState*>(connection->encoder_state);
  if (!state->streaming) {
    Runtime.error("Receive chunk called, but we are not a stream!\n");
    return 0;
  }
  while (state->completed == nullptr) {
    const unsigned int n = recv_blocked(connection, chunk_read_buffer, sizeof chunk_read_buffer);
    Encoding::Chunked::collect(chunk_read_buffer, n, connection->context_object, connection);
  }
  return runenv::take_chunk(state, buffer, capacity);
}

static void queue_chunk(Connection* connection, std::string_view bytes) {
  if (bytes.size() >= kChunkLimit) {
    runenv::throw_failure("A chunk of " + std::to_string(bytes.size()) +
                          " bytes is too long to be sent");
  }
  char length[4];
  runenv::write_big_endian(length, static_cast<uint32_t>(bytes.size()));
  connection->send_queue.push({length, sizeof length}, bytes);
}

void Outbound::send_chunk(const char* data, unsigned int length) {
  switch (connection->encoding_kind) {
    case EncodingKind::None:
    case EncodingKind::ZeroTerminated:
      Raw::send_raw_block(connection, data, length);
      break;
    case EncodingKind::Chunked:
      if (!connection->marked_closed) {  // if marked, do not throw for a long chunk either
        queue_chunk(connection, {data, length});
      }
      break;
  }
}

static void log_message(const char* format, const Connection* connection) {
  if (genv_debug_verbose) {
    Runtime.log(RuntimeCore::SGR::Cyan, format, connection->name.c_str());
  }
}

Inbound* create_inbound(Connection* connection) {
  log_message("Creating inbound message on '%s'.\n", connection);
  return new Inbound{connection};
}

void finalize_inbound(Inbound* message) {
  log_message("Finalized inbound message on '%s'.\n", message->connection);
  delete message;
}

Outbound* create_outbound(Connection* connection) {
  log_message("Creating outbound message on '%s'.\n", connection);
  return new Outbound{connection};
}

// Returns the bytes that end a message.
static std::string_view message_end(EncodingKind kind) {
  static constexpr char kZeros[4] = {};
  switch (kind) {
    case EncodingKind::None:
      break;
    case EncodingKind::ZeroTerminated:
      return {kZeros, 1};
    case EncodingKind::Chunked:
      return {kZeros, 4};
  }
  return {};
}

void finalize_outbound(Outbound* message) {
  Connection* const connection = message->connection;
  const std::string_view end = message_end(connection->encoding_kind);
  if (!end.empty() && !connection->marked_closed) {
    connection->send_queue.push_end(end);
  }
  log_message("Finalized outbound message on '%s'.\n", connection);
  delete message;
}

}  // namespace Message
}  // namespace SocketASync
