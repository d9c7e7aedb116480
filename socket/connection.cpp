#include "socket/connection.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "runtime/runtime_core.h"
#include "socket/decoder.h"
#include "socket/encoding.h"

namespace SocketASync {

static char peer_name_buffer[INET6_ADDRSTRLEN];

Connection::~Connection() {
  runenv::free_encoder_state(encoding_kind, encoder_state);
}

void mark_close(Connection* connection) {
  if (genv_debug_verbose) {
    Runtime.log(RuntimeCore::SGR::Red, "Mark close '%s'.\n", connection->name.c_str());
  }
  connection->marked_closed = true;
}

void* get_context_object(Connection* connection) {
  return connection->context_object;
}

void set_timeout(Connection* connection, unsigned int seconds) {
  connection->timeout = seconds;
}

const char* get_peer_name(Connection* connection) {
  union {
    char area[128];
    sockaddr any;
    sockaddr_in v4;
    sockaddr_in6 v6;
  } address{};
  socklen_t length = sizeof address;
  const bool known = getpeername(connection->fd, &address.any, &length) == 0;
  if (known && address.any.sa_family == AF_INET6) {
    inet_ntop(AF_INET6, &address.v6.sin6_addr, peer_name_buffer, INET6_ADDRSTRLEN);
  } else if (known && address.any.sa_family == AF_INET) {
    inet_ntop(AF_INET, &address.v4.sin_addr, peer_name_buffer, INET_ADDRSTRLEN);
  } else {
    std::memset(peer_name_buffer, 0, sizeof peer_name_buffer);
  }
  return peer_name_buffer;
}

void sock_close(int fd) {
  close(fd);
}

static void dump_encoding(const Connection* connection) {
  switch (connection->encoding_kind) {
    case EncodingKind::None:
      Runtime.error("  Has no encoding\n");
      break;
    case EncodingKind::ZeroTerminated: {
      const auto* state = static_cast<const ZeroTerminatedState*>(connection->encoder_state);
      Runtime.error("  Zero terminated encoder:\n");
      Runtime.error("    Collected %lld bytes\n",
                    static_cast<long long>(state->collected.length()));
      break;
    }
    case EncodingKind::Chunked: {
      const auto* state = static_cast<const ChunkedState*>(connection->encoder_state);
      const bool waiting = state->in_header && state->header_count == 0;
      Runtime.error("  Chunked encoder:\n");
      Runtime.error("    Collected%s chunks\n", state->completed != nullptr ? "" : " no");
      Runtime.error("    Is%s streaming\n", state->streaming ? "" : " not");
      Runtime.error("    Is %s\n", waiting ? "waiting for chunk" : "staging a chunk");
      break;
    }
  }
}

static void dump_state(const char* operation, const Connection* connection, int errnum) {
  const SendQueue& queue = connection->send_queue;
  const auto sending = static_cast<long long>(queue.empty() ? 0 : queue.head->bytes.length());
  const bool more = queue.head != queue.tail;
  Runtime.error("Socket error[%s]: %s\n", operation, std::strerror(errnum));
  Runtime.error("State dump: %s\n", connection->name.c_str());
  Runtime.error("  Sending %lld%s\n", sending, more ? " with more blocks waiting" : "");
  Runtime.error("  Has%s receiver\n", connection->has_receiver ? "" : " no");
  Runtime.error("  Is%s marked closed\n", connection->marked_closed ? "" : " not");
  dump_encoding(connection);
}

// Returns the log line for an error that is an ordinary end of a connection, or null.
static const char* ordinary_end(int errnum) {
  switch (errnum) {
    case EPIPE:
      return "Connection broken named '%s'.\n";
    case ECONNRESET:
      return "Connection reset named '%s'.\n";
    case ETIMEDOUT:
      return "Connection timeout named '%s'.\n";
    case EHOSTUNREACH:
      return "Server not reachable for connection named '%s'.\n";
    default:
      return nullptr;
  }
}

bool report_socket_error(const char* operation, Connection* connection, int errnum) {
  if (errnum == EAGAIN) {
    return false;
  }
  const char* const format = ordinary_end(errnum);
  if (format == nullptr) {
    dump_state(operation, connection, errnum);
  } else if (genv_debug_info) {
    Runtime.log(format, connection->name.c_str());
  }
  return true;
}

void Raw::register_raw_receiver(Connection* connection,
                                void (*receiver)(const char*, unsigned int, void*, Connection*)) {
  connection->receiver = receiver;
  connection->has_receiver = true;
}

void Raw::send_raw_block(Connection* connection, const char* data, unsigned int length) {
  if (length != 0 && !connection->marked_closed) {
    connection->send_queue.push({}, {data, length});
  }
}

}  // namespace SocketASync
