#include "socket/datagram.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>

#include "runtime/runtime_core.h"

namespace runenv {

using SocketASync::EndPoint;

static char datagram_buffer[65535];
static EndPoint* receiving = nullptr;  // the endpoint whose callback is running

bool callback_runs(const EndPoint* endpoint) {
  return endpoint == receiving;
}

namespace {

struct Receiving {
  explicit Receiving(EndPoint* endpoint) { receiving = endpoint; }
  ~Receiving() {
    if (receiving->closing) {
      receiving->callback = nullptr;
    }
    receiving = nullptr;
  }
  Receiving(const Receiving&) = delete;
  Receiving& operator=(const Receiving&) = delete;
};

}  // namespace

static void report_failed_receive(const EndPoint* endpoint) {
  if (genv_debug_verbose) {
    Runtime.error("EndPoint '%s' failed to receive.\n", endpoint->name.c_str());
  }
}

// Calls the endpoint's callback. If that destroys the endpoint, the callback object is dropped
// after it has returned.
static void call_back(EndPoint* endpoint, const void* payload, unsigned short length,
                      const char* sender_path) {
  const Receiving guard(endpoint);
  endpoint->callback(endpoint->context, payload, length, sender_path, endpoint);
}

void receive_datagram(EndPoint* endpoint) {
  // Room for any sender's path and a terminator. `area` is the first member so that all is zeroed.
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
  if (received < ssize_t{sizeof kPrefix}) {
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
    const auto length = static_cast<unsigned short>(received - ssize_t{sizeof kPrefix});
    call_back(endpoint, datagram_buffer + sizeof kPrefix, length, sender.local.sun_path);
  }
}

}  // namespace runenv
