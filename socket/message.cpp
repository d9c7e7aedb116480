#include "socket/message.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "core/error.h"
#include "core/failure.h"
#include "runtime/runtime_core.h"
#include "socket/encoding.h"

namespace SocketASync {

static char chunk_read_buffer[4096];

// Waits until the connection is readable, at most for its timeout, which signals do not prolong.
static void wait_readable(const Connection* connection) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::seconds(connection->timeout);
  pollfd waited{connection->fd, POLLIN, 0};
  int ready;
  do {
    const auto left = std::max(Clock::duration::zero(), deadline - Clock::now());
    const long nanoseconds = std::chrono::nanoseconds(left).count();
    const timespec limit{nanoseconds / 1000000000, nanoseconds % 1000000000};
    ready = ppoll(&waited, 1, connection->timeout == 0 ? nullptr : &limit, nullptr);
  } while (ready < 0 && errno == EINTR);
  if (ready < 0) {
    runenv::throw_system_failure(errno);
  }
  if (ready == 0) {
    runenv::throw_failure("Timeout expired while waiting for blocking socket read");
  }
}

unsigned int recv_blocked(Connection* connection, char* buffer, unsigned int capacity) {
  if (capacity == 0) {
    return 0;  // reading nothing would look like the peer's end
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

// Takes the first complete chunk, unless it is longer than `capacity`.
static unsigned int take_chunk(ChunkedState* state, char* buffer, unsigned int capacity) {
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
  auto* state = static_cast<ChunkedState*>(connection->encoder_state);
  if (!state->streaming) {
    Runtime.error("Receive chunk called, but we are not a stream!\n");
    return 0;
  }
  while (state->completed == nullptr) {
    const unsigned int n = recv_blocked(connection, chunk_read_buffer, sizeof chunk_read_buffer);
    Encoding::Chunked::collect(chunk_read_buffer, n, connection->context_object, connection);
  }
  return take_chunk(state, buffer, capacity);
}

void Outbound::send_chunk(const char* data, unsigned int length) {
  switch (connection->encoding_kind) {
    case EncodingKind::None:
    case EncodingKind::ZeroTerminated:
      Raw::send_raw_block(connection, data, length);
      break;
    case EncodingKind::Chunked: {
      if (connection->marked_closed) {
        break;  // silent, whatever the length
      }
      if (length >= 0xFFFFFFFC) {
        runenv::throw_failure("A chunk of " + std::to_string(length) +
                              " bytes is too long to be sent");
      }
      char header[4];
      store_length(header, length);
      queue_block(connection, header, sizeof header, data, length);
      break;
    }
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

void finalize_outbound(Outbound* message) {
  static constexpr char kEnd[4] = {0, 0, 0, 0};
  Connection* const connection = message->connection;
  if (connection->encoding_kind == EncodingKind::Chunked) {
    queue_block(connection, kEnd, 4, nullptr, 0);
  } else if (connection->encoding_kind == EncodingKind::ZeroTerminated) {
    queue_block(connection, kEnd, 1, nullptr, 0);
  }
  log_message("Finalized outbound message on '%s'.\n", connection);
  delete message;
}

}  // namespace Message
}  // namespace SocketASync
