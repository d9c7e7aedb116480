#include "socket/poll.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <vector>

#include "runtime/runtime_core.h"
#include "socket/accepting.h"
#include "socket/client.h"
#include "socket/datagram.h"
#include "socket/descriptor.h"
#include "socket/ending.h"
#include "socket/registry.h"
#include "socket/serving.h"

namespace SocketASync {

using std::chrono::microseconds;

static char receive_buffer[4096];

namespace {

// The descriptors that one pass waits for.
struct WaitSets {
  fd_set readable;
  fd_set writable;
  int highest = -1;

  WaitSets() {
    FD_ZERO(&readable);
    FD_ZERO(&writable);
  }

  void add(int fd, fd_set* set) {
    FD_SET(fd, set);
    highest = std::max(highest, fd);
  }
};

// Prevents nested passes: the inner one could free objects that the outer one still uses.
class Pass {
 public:
  Pass() {
    if (running) {
      Runtime.error("Sockets polled by a callback of theirs!\n");
      std::abort();
    }
    running = true;
  }
  ~Pass() { running = false; }
  Pass(const Pass&) = delete;
  Pass& operator=(const Pass&) = delete;

 private:
  static inline bool running = false;
};

}  // namespace

void msg_init() {
  std::signal(SIGPIPE, SIG_IGN);
}

void msg_shutdown() {}

static void end_client(size_t index) {
  // The callback is a member of the record, which is only freed after the callback has returned.
  Client* const client = active_state.clients[index];
  runenv::end_connection(active_state.clients, index, client->closed);
}

// Adds a connection to the sets. Returns false if its descriptor does not fit in a set, for example
// after a failed accept.
static bool watch(const Connection* connection, WaitSets* sets) {
  if (!runenv::fits_descriptor_set(connection->fd)) {
    return false;
  }
  if (!connection->marked_closed) {
    sets->add(connection->fd, &sets->readable);
  }
  if (!connection->send_queue.empty()) {
    sets->add(connection->fd, &sets->writable);
  }
  return true;
}

static bool is_due(const Connection* connection) {
  return connection->marked_closed && connection->send_queue.empty();
}

static void watch_listener(Listener* listener, bool accepting, WaitSets* sets) {
  if (accepting) {
    sets->add(listener->fd, &sets->readable);
  }
  for (size_t i = 0; i < listener->connections.size();) {
    Connection* const connection = listener->connections[i];
    if (is_due(connection)) {
      if (genv_debug_info) {
        Runtime.log("Closing connection on '%s' named '%s'.\n", listener->name.c_str(),
                    connection->name.c_str());
      }
      runenv::end_connection(listener->connections, i, listener->closed);
    } else if (!watch(connection, sets)) {
      // The failed accept has already been reported.
      runenv::end_connection(listener->connections, i, listener->closed);
    } else {
      ++i;
    }
  }
}

static void watch_clients(WaitSets* sets) {
  for (size_t i = 0; i < active_state.clients.size();) {
    Client* const client = active_state.clients[i];
    if (is_due(client)) {
      if (genv_debug_info) {
        Runtime.log("Closing connection '%s'.\n", client->name.c_str());
      }
      end_client(i);
    } else if (!watch(client, sets)) {
      report_socket_error("recv", client, EBADF);
      end_client(i);
    } else {
      ++i;
    }
  }
}

static void end_endpoint(size_t index) {
  auto& endpoints = active_state.endpoints;
  const std::unique_ptr<EndPoint> endpoint(endpoints[index]);
  if (genv_debug_info) {
    Runtime.log("EndPoint '%s' closed.\n", endpoint->name.c_str());
  }
  sock_close(endpoint->fd);
  endpoints.erase(endpoints.begin() + static_cast<ptrdiff_t>(index));
}

static void watch_endpoints(WaitSets* sets) {
  const auto& endpoints = active_state.endpoints;
  for (size_t i = 0; i < endpoints.size();) {
    if (endpoints[i]->closing) {
      end_endpoint(i);
    } else {
      sets->add(endpoints[i]->fd, &sets->readable);
      ++i;
    }
  }
}

static void serve_listener(Listener* listener, WaitSets* sets) {
  for (size_t i = 0; i < listener->connections.size();) {
    if (service_connection(listener->connections[i], &sets->readable, &sets->writable)) {
      ++i;
    } else {
      runenv::end_connection(listener->connections, i, listener->closed);
    }
  }
  if (FD_ISSET(listener->fd, &sets->readable)) {
    runenv::accept_connection(listener);
  }
}

static void serve_clients(WaitSets* sets) {
  for (size_t i = 0; i < active_state.clients.size();) {
    if (service_connection(active_state.clients[i], &sets->readable, &sets->writable)) {
      ++i;
    } else {
      end_client(i);
    }
  }
}

template <typename T>
static void promote(std::vector<T*>& pending, std::vector<T*>& active) {
  if (!pending.empty()) {
    active.insert(active.end(), pending.begin(), pending.end());
    pending.clear();
  }
}

static void promote_pending() {
  promote(pending_state.listeners, active_state.listeners);
  promote(pending_state.clients, active_state.clients);
  promote(pending_state.endpoints, active_state.endpoints);
}

// Returns how long a pass waits: no longer than until the pause of accepting ends.
static timeval wait_limit(unsigned int milliseconds, microseconds accept_pause) {
  microseconds limit = std::chrono::milliseconds(milliseconds);
  if (accept_pause.count() != 0) {
    limit = std::min(limit, accept_pause);
  }
  const auto seconds = std::chrono::floor<std::chrono::seconds>(limit);
  return {seconds.count(), (limit - seconds).count()};
}

void poll(unsigned int milliseconds) {
  const Pass pass;
  WaitSets sets;
  const microseconds pause = runenv::accept_pause_left();
  const bool accepting = pause.count() == 0;
  timeval limit = wait_limit(milliseconds, pause);
  promote_pending();
  runenv::for_each_listener([&](Listener* l) { watch_listener(l, accepting, &sets); });
  watch_clients(&sets);
  watch_endpoints(&sets);
  if (select(sets.highest + 1, &sets.readable, &sets.writable, nullptr, &limit) <= 0) {
    return;
  }
  runenv::for_each_listener([&](Listener* listener) { serve_listener(listener, &sets); });
  serve_clients(&sets);
  for (EndPoint* endpoint : active_state.endpoints) {
    if (FD_ISSET(endpoint->fd, &sets.readable)) {
      runenv::receive_datagram(endpoint);
    }
  }
}

// Reads once. Returns false if the connection is lost.
static bool receive(Connection* connection) {
  const ssize_t n = recv(connection->fd, receive_buffer, sizeof receive_buffer, 0);
  if (n < 0) {
    return !report_socket_error("recv", connection, errno);
  }
  if (n == 0) {
    if (genv_debug_info) {
      Runtime.log("Connection lost named '%s'.\n", connection->name.c_str());
    }
    return false;
  }
  if (connection->has_receiver) {
    connection->receiver(receive_buffer, static_cast<unsigned int>(n), connection->context_object,
                         connection);
  }
  return true;
}

// Sends once from the head of the queue. Returns false if the connection is lost.
static bool send_head(Connection* connection) {
  Buffer& bytes = connection->send_queue.head->bytes;
  const ssize_t n = send(connection->fd, bytes.get_unmanaged_array(), bytes.length(), 0);
  if (n < 0) {
    return !report_socket_error("send", connection, errno);
  }
  if (static_cast<unsigned long long>(n) == bytes.length()) {
    connection->send_queue.pop();
  } else {
    bytes.consume(static_cast<unsigned long long>(n));
  }
  return true;
}

bool service_connection(Connection* connection, fd_set* readable, fd_set* writable) {
  const int fd = connection->fd;
  if (!runenv::fits_descriptor_set(fd)) {
    return !report_socket_error("recv", connection, EBADF);
  }
  if (FD_ISSET(fd, readable) && !receive(connection)) {
    return false;
  }
  if (FD_ISSET(fd, writable) && !connection->send_queue.empty()) {
    return send_head(connection);
  }
  return true;
}

}  // namespace SocketASync
