#include "socket/flush.h"

#include <algorithm>
#include <set>
#include <utility>

#include "socket/client.h"
#include "socket/listener.h"
#include "socket/poll.h"
#include "socket/registry.h"

using SocketASync::Connection;
using Waiting = std::set<Connection*>;

static Waiting* current = nullptr;  // the connections that the running flush waits for

namespace {

struct Running {
  explicit Running(Waiting* waiting) : outer(std::exchange(current, waiting)) {}
  ~Running() { current = outer; }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  Waiting* outer;  // of an outer flush: a callback may call flush while nothing is queued
};

}  // namespace

void runenv::leave_flush(Connection* connection) {
  if (current != nullptr) {
    current->erase(connection);
  }
}

void SocketASync::flush() {
  Waiting waiting;
  const Running running(&waiting);
  const auto join = [&waiting](Connection* connection) {
    if (!connection->send_queue.empty()) {
      waiting.insert(connection);
    }
  };
  for (const Listener* listener : active_state.listeners) {
    std::for_each(listener->connections.begin(), listener->connections.end(), join);
  }
  std::for_each(active_state.clients.begin(), active_state.clients.end(), join);
  while (!waiting.empty()) {
    poll(10);
    std::erase_if(waiting, [](const Connection* c) { return c->send_queue.empty(); });
  }
}
