#include "socket/poll.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "runtime/runtime_core.h"
#include "socket/client.h"
#include "socket/descriptor.h"
#include "socket/ending.h"
#include "socket/endpoint.h"
#include "socket/listener.h"
#include "socket/registry.h"

namespace SocketASync {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

static char receive_buffer[4096];

// Accepting has failed, as a rule for want of descriptors. What waits to be accepted would end
// every wait at once, so the waits leave the listeners out for a time, which doubles with every
// further failure until accepting succeeds.
struct AcceptPause {
  microseconds length{0};
  Clock::time_point end;

  void lengthen() {
    length = std::clamp<microseconds>(2 * length, 10ms, 1s);
    end = Clock::now() + length;
  }
  void lift() { length = microseconds(0); }
  microseconds left() const {
    const microseconds none(0);
    return length == none ? none : std::max(none, ceil<microseconds>(end - Clock::now()));
  }
};
static AcceptPause accept_pause;

// What one pass waits for.
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

void msg_init() {
  std::signal(SIGPIPE, SIG_IGN);
}

void msg_shutdown() {}

static void end_client(size_t index) {
  // The callback may not be destroyed while it runs: it is the record's own until then.
  Client* const client = active_state.clients[index];
  end_connection(active_state.clients, index, client->closed);
}

// Adds a connection to the sets. False: it can never be ready, since its accept failed or its
// descriptor fits no set.
static bool watch(const Connection* connection, WaitSets* sets) {
  if (!fits_descriptor_set(connection->fd)) {
    return false;
  }
  if (!connection->marked_closed) {
    sets->add(connection->fd, &sets->readable);
  }
  if (connection->send_queue_head != nullptr) {
    sets->add(connection->fd, &sets->writable);
  }
  return true;
}

static bool is_due(const Connection* connection) {
  return connection->marked_closed && connection->send_queue_head == nullptr;
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
      end_connection(listener->connections, i, listener->closed);
    } else if (!watch(connection, sets)) {
      end_connection(listener->connections, i, listener->closed);  // its accept was reported
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

static void watch_endpoints(WaitSets* sets) {
  auto& endpoints = active_state.endpoints;
  for (size_t i = 0; i < endpoints.size();) {
    const std::unique_ptr<EndPoint> closing(endpoints[i]->closing ? endpoints[i] : nullptr);
    if (closing == nullptr) {
      sets->add(endpoints[i]->fd, &sets->readable);
      ++i;
      continue;
    }
    if (genv_debug_info) {
      Runtime.log("EndPoint '%s' closed.\n", closing->name.c_str());
    }
    sock_close(closing->fd);
    endpoints.erase(endpoints.begin() + static_cast<ptrdiff_t>(i));
  }
}

// The error of an accept that gave `fd`, 0 for none. A descriptor that fits no set is one too many.
static int accept_error(int fd) {
  if (fd < 0) {
    return errno;
  }
  return fits_descriptor_set(fd) ? 0 : EMFILE;
}

// A failed accept makes a connection all the same, which is lost in the next pass.
static void accept_connection(Listener* listener) {
  char peer[16];
  socklen_t length = sizeof peer;
  auto owned = std::make_unique<Connection>();
  listener->connections.push_back(owned.get());
  Connection* const connection = owned.release();
  connection->fd = accept4(listener->fd, reinterpret_cast<sockaddr*>(peer), &length,
                           SOCK_CLOEXEC | SOCK_NONBLOCK);
  const int error_number = accept_error(connection->fd);
  set_no_delay(connection->fd);
  connection->name = listener->name + ":" + std::to_string(connection->fd);
  if (genv_debug_info) {
    Runtime.log("New connection on '%s' named '%s'.\n", listener->name.c_str(),
                connection->name.c_str());
  }
  if (error_number == 0) {
    accept_pause.lift();
  } else if (report_socket_error("accept", connection, error_number)) {
    accept_pause.lengthen();
  }
  connection->context_object = listener->factory(listener->context, connection);
}

static void serve_listener(Listener* listener, WaitSets* sets) {
  for (size_t i = 0; i < listener->connections.size();) {
    if (service_connection(listener->connections[i], &sets->readable, &sets->writable)) {
      ++i;
    } else {
      end_connection(listener->connections, i, listener->closed);
    }
  }
  if (FD_ISSET(listener->fd, &sets->readable)) {
    accept_connection(listener);
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

// Calls `visit` with every listener, in order. A callback may destroy listeners before and after
// the one that is visited.
template <typename Visit>
static void for_each_listener(const Visit& visit) {
  struct Served {
    ~Served() { served_listener = nullptr; }
  };
  const Served none_afterwards;
  const auto& listeners = active_state.listeners;
  for (size_t i = 0; i < listeners.size(); ++i) {
    served_listener = listeners[i];
    visit(served_listener);
    while (i >= listeners.size() || listeners[i] != served_listener) {
      --i;
    }
  }
}

// One pass at a time: a pass inside another would free what that still uses.
struct Pass {
  Pass() {
    if (running) {
      Runtime.error("Sockets polled by a callback of theirs!\n");
      std::abort();
    }
    running = true;
  }
  ~Pass() { running = false; }
  static inline bool running = false;
};

void poll(unsigned int milliseconds) {
  const Pass pass;
  WaitSets sets;
  const microseconds pause = accept_pause.left();
  const bool accepting = pause.count() == 0;
  const microseconds longest = std::chrono::milliseconds(milliseconds);
  const auto wait = (accepting ? longest : std::min(longest, pause)).count();
  timeval limit{wait / 1000000, wait % 1000000};
  promote_pending();
  for_each_listener([&](Listener* listener) { watch_listener(listener, accepting, &sets); });
  watch_clients(&sets);
  watch_endpoints(&sets);
  if (select(sets.highest + 1, &sets.readable, &sets.writable, nullptr, &limit) <= 0) {
    return;
  }
  for_each_listener([&](Listener* listener) { serve_listener(listener, &sets); });
  serve_clients(&sets);
  for (EndPoint* endpoint : active_state.endpoints) {
    if (FD_ISSET(endpoint->fd, &sets.readable)) {
      receive_datagram(endpoint);
    }
  }
}

// False when the connection is lost.
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

static void drop_head(Connection* connection) {
  const std::unique_ptr<SendBlock> block(connection->send_queue_head);
  connection->send_queue_head = block->next;
  if (connection->send_queue_head == nullptr) {
    connection->send_queue_tail = nullptr;
  }
}

// Sends from the head of the queue, once. False when the connection is lost.
static bool send_head(Connection* connection) {
  Buffer& bytes = connection->send_queue_head->bytes;
  const ssize_t n = send(connection->fd, bytes.get_unmanaged_array(), bytes.length(), 0);
  if (n < 0) {
    return !report_socket_error("send", connection, errno);
  }
  if (static_cast<unsigned long long>(n) == bytes.length()) {
    drop_head(connection);
  } else {
    bytes.consume(static_cast<unsigned long long>(n));
  }
  return true;
}

bool service_connection(Connection* connection, fd_set* readable, fd_set* writable) {
  const int fd = connection->fd;
  if (!fits_descriptor_set(fd)) {
    return !report_socket_error("recv", connection, EBADF);
  }
  if (FD_ISSET(fd, readable) && !receive(connection)) {
    return false;
  }
  if (FD_ISSET(fd, writable) && connection->send_queue_head != nullptr) {
    return send_head(connection);
  }
  return true;
}

void flush() {
  struct Ended {
    ~Ended() { flushing.clear(); }
  };
  const Ended ended;
  const auto join = [](Connection* connection) {
    if (connection->send_queue_head != nullptr) {
      flushing.insert(connection);
    }
  };
  for (const Listener* listener : active_state.listeners) {
    std::for_each(listener->connections.begin(), listener->connections.end(), join);
  }
  std::for_each(active_state.clients.begin(), active_state.clients.end(), join);
  // A connection that ends meanwhile leaves the set with its destructor.
  while (!flushing.empty()) {
    poll(10);
    std::erase_if(flushing, [](const Connection* c) { return c->send_queue_head == nullptr; });
  }
}

}  // namespace SocketASync
