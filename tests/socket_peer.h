// Common code for the socket tests: a connection in memory, and raw sockets as its peers.
#pragma once

#include <arpa/inet.h>
#include <sys/un.h>

#include <chrono>
#include <memory>

#include "core/owner.h"
#include "runtime/runtime_core.h"
#include "socket/socket_async.h"
#include "tests/files.h"

using namespace SocketASync;
using namespace std::string_literals;
using Messages = std::vector<std::string>;

inline std::string chunk(const std::string& bytes) {
  const uint32_t n = htonl(static_cast<uint32_t>(bytes.size()));
  return std::string(reinterpret_cast<const char*>(&n), 4) + bytes;
}
static const std::string kEnd = chunk("");

inline void say(Connection* connection, const std::string& text) {
  auto* const message = Message::create_outbound(connection);
  if (!text.empty()) message->send_chunk(text.data(), static_cast<unsigned>(text.size()));
  finalize_outbound(message);
}

// Passes bytes to the receiver of a connection as poll does.
inline void feed(Connection* connection, std::string bytes) {
  connection->receiver(bytes.data(), static_cast<unsigned>(bytes.size()),
                       connection->context_object, connection);
}

// Returns the blocks that are queued on a connection.
inline Messages queued(const Connection& connection) {
  Messages blocks;
  for (auto* block = connection.send_queue.head; block != nullptr; block = block->next) {
    blocks.emplace_back(block->bytes.get_unmanaged_array(), block->bytes.length());
  }
  return blocks;
}

// Runs the loop until `done`, at most ten seconds.
inline bool poll_until(const auto& done) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  while (!done() && Clock::now() < deadline) Runtime.poll(10);
  return done();
}

inline sockaddr_un unix_address(const std::string& path) {
  sockaddr_un address{AF_UNIX, {}};
  path.copy(address.sun_path, sizeof address.sun_path);
  return address;
}

// A raw socket that is the peer of a connection.
struct Peer {
  explicit Peer(const char* path, int type = SOCK_STREAM) : fd(socket(AF_UNIX, type, 0)) {
    const sockaddr_un address = unix_address(path);
    EXPECT_EQ(connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  void send(const std::string& bytes) const {
    const auto n = static_cast<ssize_t>(bytes.size());
    EXPECT_EQ(::send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), n);
  }
  // Returns all bytes until the other side closes.
  std::string receive() const {
    std::string bytes;
    char area[65536];
    for (ssize_t n; (n = recv(fd.get(), area, sizeof area, 0)) > 0;) {
      bytes.append(area, static_cast<size_t>(n));
    }
    return bytes;
  }
  runenv::unique_fd fd;
};

class SocketTest : public ScratchTest {
 public:
  SocketTest() { Runtime.startsocket(); }

  // Closes what the test has left open, as its owner would.
  ~SocketTest() override {
    genv_debug_info = genv_debug_verbose = false;
    Runtime.poll(0);
    auto& active = active_state;
    while (!active.listeners.empty()) destroy_listener(active.listeners.front());
    for (Client* client : active.clients) mark_close(client);
    for (EndPoint* endpoint : active.endpoints) endpoint_destroy(endpoint);
    EXPECT_TRUE(poll_until([&] { return active.clients.empty() && active.endpoints.empty(); }));
  }

  Listener* listen_unix(const char* path) { return create_listener(path, this, factory, ended); }

  // Returns an accepted peer of a new unix listener.
  std::unique_ptr<Peer> connect_peer() {
    listen_unix("s");
    auto peer = std::make_unique<Peer>("s");
    EXPECT_TRUE(poll_until([&] { return connections.size() == 1; }));
    return peer;
  }

  static void note(void* test, const std::string& text) {
    static_cast<SocketTest*>(test)->messages.push_back(text);
  }

  Messages messages;  // received by raw connections
  std::vector<Connection*> connections;
  int closed = 0;
  std::function<void(Connection*)> accepted = [](Connection*) {};
  const std::function<void*(void*, Connection*)> factory = [this](void* context, Connection* c) {
    connections.push_back(c);
    Raw::register_raw_receiver(c, [](const char* data, unsigned n, void* test, Connection*) {
      note(test, std::string(data, n));
    });
    accepted(c);
    return context;
  };
  const std::function<void(void*, Connection*)> ended = [this](void* context, Connection* c) {
    EXPECT_EQ(context, this);
    ++closed;
    std::erase(connections, c);
  };
};
