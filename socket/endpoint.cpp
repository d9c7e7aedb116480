#include "socket/endpoint.h"

#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "runtime/runtime_core.h"
#include "socket/descriptor.h"
#include "socket/registry.h"

namespace SocketASync {

using Callback = std::function<void(void*, const void*, unsigned short, const char*, EndPoint*)>;

static constexpr char kPrefix[4] = {'Q', 'V', 'I', 'R'};
static constexpr unsigned short kMaximumPayload = 65531;

static char datagram_buffer[65535];

static EndPoint* receiving = nullptr;  // the one whose callback runs

static void report_too_long(const char* path) {
  Runtime.error("Unix domain socket path is to long (%ld)!\n",
                static_cast<long>(std::strlen(path)));
}

EndPoint* endpoint_create(const char* path, void* context, Callback callback) {
  sockaddr_un address;
  unsigned int length;
  if (!set_unix_address(path, &address, &length)) {
    report_too_long(path);
    return nullptr;
  }
  const int fd = open_socket(AF_UNIX, SOCK_DGRAM, 0);
  if (fd < 0) {
    Runtime.error("Unable to create socket: %s\n", std::strerror(errno));
    return nullptr;
  }
  unlink(path);  // a stale file of an earlier run; any other file goes as well
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), length) != 0) {
    Runtime.error("Unable to bind socket to '%s': %s\n", path, std::strerror(errno));
    close(fd);
    return nullptr;
  }
  set_non_blocking(fd);
  auto endpoint =
      std::make_unique<EndPoint>(EndPoint{context, path, fd, std::move(callback), false});
  pending_state.endpoints.push_back(endpoint.get());
  if (genv_debug_info) {
    Runtime.log("EndPoint '%s' opened.\n", endpoint->name.c_str());
  }
  return endpoint.release();
}

void endpoint_destroy(EndPoint* endpoint) {
  if (endpoint != receiving) {
    endpoint->callback = nullptr;
  }
  endpoint->closing = true;
}

bool endpoint_sendto(EndPoint* endpoint, const char* destination_path, const void* payload,
                     unsigned short length) {
  sockaddr_un address;
  unsigned int address_length;
  if (!set_unix_address(destination_path, &address, &address_length)) {
    report_too_long(destination_path);
    return false;
  }
  if (length > kMaximumPayload) {
    return false;
  }
  iovec pieces[2] = {{const_cast<char*>(kPrefix), sizeof kPrefix},
                     {const_cast<void*>(payload), length}};
  msghdr message{};
  message.msg_name = &address;
  message.msg_namelen = address_length;
  message.msg_iov = pieces;
  message.msg_iovlen = 2;
  const ssize_t sent = sendmsg(endpoint->fd, &message, 0);
  if (sent < 0) {
    if (genv_debug_info) {
      Runtime.error("EndPoint '%s' failed to send to '%s': %s\n", endpoint->name.c_str(),
                    destination_path, std::strerror(errno));
    }
    return false;
  }
  return sent == length;  // the prefix counts on the left only, on purpose
}

static void report_failed_receive(const EndPoint* endpoint) {
  if (genv_debug_verbose) {
    Runtime.error("EndPoint '%s' failed to receive.\n", endpoint->name.c_str());
  }
}

// Calls the endpoint's callback, which may destroy the endpoint but stays until it returns.
static void call_back(EndPoint* endpoint, const void* payload, unsigned short length,
                      const char* sender_path) {
  struct Receiving {
    explicit Receiving(EndPoint* endpoint) { receiving = endpoint; }
    ~Receiving() {
      if (receiving->closing) {
        receiving->callback = nullptr;
      }
      receiving = nullptr;
    }
  };
  const Receiving guard(endpoint);
  endpoint->callback(endpoint->context, payload, length, sender_path, endpoint);
}

void receive_datagram(EndPoint* endpoint) {
  // Room for the path of any sender and its terminator; the area comes first to be zeroed whole.
  union {
    char area[sizeof(sockaddr_un) + 1];
    sockaddr any;
    sockaddr_un local;
  } sender{};
  socklen_t sender_length = sizeof(sockaddr_un);
  const ssize_t received = recvfrom(endpoint->fd, datagram_buffer, sizeof datagram_buffer, 0,
                                    &sender.any, &sender_length);
  if (received < 0) {
    report_failed_receive(endpoint);
    return;
  }
  if (genv_debug_verbose) {
    Runtime.log("EndPoint '%s' received message from '%s'.\n", endpoint->name.c_str(),
                sender.local.sun_path);
  }
  if (received < static_cast<ssize_t>(sizeof kPrefix)) {
    report_failed_receive(endpoint);
    return;
  }
  if (std::memcmp(datagram_buffer, kPrefix, sizeof kPrefix) != 0) {
    if (genv_debug_info) {
      Runtime.error("EndPoint '%s' received message with incorrect prefix!\n",
                    endpoint->name.c_str());
    }
    report_failed_receive(endpoint);
    return;
  }
  if (endpoint->callback) {
    call_back(endpoint, datagram_buffer + sizeof kPrefix, static_cast<unsigned short>(received - 4),
              sender.local.sun_path);
  }
}

}  // namespace SocketASync
