// What the socket tests share: the layer's side of a conversation, and raw sockets for the other.
#pragma once

#include <netinet/in.h>
#include <sys/un.h>

#include <chrono>
#include <memory>

#include "core/owner.h"
#include "runtime/runtime_core.h"
#include "socket/socket_async.h"
#include "tests/files.h"

using namespace std::string_literals;
using SocketASync::Connection;
using Messages = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

// Runs the loop until `done`, at most ten seconds.
inline bool poll_until(const auto& done) {
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  while (!done() && Clock::now() < deadline) Runtime.poll(10);
  return done();
}

inline std::string chunk(const std::string& bytes) {
  const uint32_t n = htonl(static_cast<uint32_t>(bytes.size()));
  return std::string(reinterpret_cast<const char*>(&n), 4) + bytes;
}
static const std::string kEnd = chunk("");

inline sockaddr_un unix_address(const std::string& path) {
  sockaddr_un address{AF_UNIX, {}};
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

// A raw socket of the test's own.
struct Peer {
  explicit Peer(uint16_t port)
      : Peer(sockaddr_in{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}}) {}
  explicit Peer(const char* path) : Peer(unix_address(path)) {}
  explicit Peer(const auto& address)
      : fd(socket(reinterpret_cast<const sockaddr&>(address).sa_family, SOCK_STREAM, 0)) {
    EXPECT_EQ(connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }

  void send(const std::string& bytes) {
    const auto n = static_cast<ssize_t>(bytes.size());
    EXPECT_EQ(::send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), n);
  }

  // Reads what is there; true once the other side has closed.
  bool read_available() {
    char bytes[65536];
    ssize_t n;
    while ((n = recv(fd.get(), bytes, sizeof bytes, MSG_DONTWAIT)) > 0) {
      received.append(bytes, static_cast<size_t>(n));
    }
    return n == 0;
  }

  runenv::unique_fd fd;
  std::string received;
};

class SocketTest : public ScratchTest {
 public:
  SocketTest() { Runtime.startsocket(); }

  // Ends all that a test has left, as its owner would.
  ~SocketTest() override {
    genv_debug_info = genv_debug_verbose = false;
    Runtime.poll(0);
    auto& active = SocketASync::active_state;
    while (!active.listeners.empty()) SocketASync::destroy_listener(active.listeners.front());
    for (auto* client : active.clients) mark_close(client);
    for (auto* endpoint : active.endpoints) endpoint_destroy(endpoint);
    EXPECT_TRUE(poll_until([&] { return active.clients.empty() && active.endpoints.empty(); }));
  }

  // A listener that sets up each connection with `accepted` and counts those that have ended.
  SocketASync::Listener* listen_unix(const char* path) {
    return SocketASync::create_listener(path, this, factory, ended);
  }

  // A peer on a fresh unix listener, accepted.
  std::unique_ptr<Peer> connect_peer(void (*encode)(Connection*) = [](Connection*) {}) {
    accepted = encode;
    listen_unix("s");
    auto peer = std::make_unique<Peer>("s");
    EXPECT_TRUE(poll_until([&] { return connections.size() == 1; }));
    return peer;
  }

  static SocketTest* of(void* context) { return static_cast<SocketTest*>(context); }

  void (*accepted)(Connection*) = [](Connection*) {};
  std::vector<Connection*> connections;
  Messages messages;
  int closed = 0;
  const std::function<void*(void*, Connection*)> factory = [this](void* context, Connection* c) {
    connections.push_back(c);
    accepted(c);
    return context;
  };
  const std::function<void(void*, Connection*)> ended = [this](void* context, Connection* c) {
    EXPECT_EQ(context, this);
    ++closed;
    std::erase(connections, c);
  };
};

inline void say(Connection* connection, const std::string& text) {
  auto* const message = SocketASync::Message::create_outbound(connection);
  if (!text.empty()) message->send_chunk(text.data(), static_cast<unsigned>(text.size()));
  finalize_outbound(message);
}
