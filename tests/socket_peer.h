// What the socket tests share: the layer's side of a conversation, and raw sockets for the other.
#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "runtime/runtime_core.h"
#include "socket/socket_async.h"

using namespace std::string_literals;
using SocketASync::Connection;
using Messages = std::vector<std::string>;

inline size_t open_descriptors() {
  const std::filesystem::directory_iterator listing("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(listing), end(listing)));
}

inline std::chrono::milliseconds elapsed(const auto& action) {
  const auto before = std::chrono::steady_clock::now();
  action();
  return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::steady_clock::now() - before);
}

// Runs the loop until `done`, at most ten seconds.
inline bool poll_until(const auto& done) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!done() && std::chrono::steady_clock::now() < deadline) Runtime.poll(10);
  return done();
}

inline std::string chunk(const std::string& bytes) {
  const uint32_t n = htonl(static_cast<uint32_t>(bytes.size()));
  return std::string(reinterpret_cast<const char*>(&n), 4) + bytes;
}
static const std::string kEnd = chunk("");

// A raw socket of the test's own.
struct Peer {
  explicit Peer(uint16_t port) : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  explicit Peer(const std::string& path) : fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = unix_address(path);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  Peer(const Peer&) = delete;
  ~Peer() { vanish(); }

  static sockaddr_un unix_address(const std::string& path) {
    sockaddr_un address{AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
  }

  void send(const std::string& bytes) {
    const auto n = static_cast<ssize_t>(bytes.size());
    ASSERT_EQ(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), n);
  }

  // Reads what is there; true once the other side has closed.
  bool read_available() {
    char bytes[65536];
    ssize_t n;
    while ((n = recv(fd, bytes, sizeof bytes, MSG_DONTWAIT)) > 0) {
      received.append(bytes, static_cast<size_t>(n));
    }
    return n == 0;
  }

  void vanish() {
    if (fd >= 0) close(std::exchange(fd, -1));
  }

  int fd;
  std::string received;
};

class SocketTest : public testing::Test {
 public:
  SocketTest() {
    char name[] = "/tmp/runenv-socket-XXXXXX";
    directory = mkdtemp(name);
    Runtime.startsocket();
  }

  // Ends all that a test has left, as its owner would, and looks for what stayed behind.
  ~SocketTest() override {
    genv_debug_info = genv_debug_verbose = false;
    Runtime.poll(0);
    auto& active = SocketASync::active_state;
    while (!active.listeners.empty()) SocketASync::destroy_listener(active.listeners.front());
    for (auto* client : active.clients) mark_close(client);
    for (auto* endpoint : active.endpoints) endpoint_destroy(endpoint);
    EXPECT_TRUE(poll_until([&] { return active.clients.empty() && active.endpoints.empty(); }));
    std::filesystem::remove_all(directory);
    EXPECT_EQ(open_descriptors(), descriptors_before);
  }

  std::string path(const char* name) const { return directory + "/" + name; }

  // Listeners that set up each connection with `accepted` and count those that have ended.
  void listen_tcp() {
    auto* listener = SocketASync::create_listener("127.0.0.1", "0", nullptr, this, factory, ended);
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(listener->fd, reinterpret_cast<sockaddr*>(&address), &length);
    port = ntohs(address.sin_port);
  }
  SocketASync::Listener* listen_unix(const char* name) {
    return SocketASync::create_listener(path(name).c_str(), this, factory, ended);
  }

  // A peer on a fresh unix listener, accepted.
  std::unique_ptr<Peer> connect_peer(const std::function<void(Connection*)>& encode = nullptr) {
    accepted = encode;
    listen_unix("s");
    auto peer = std::make_unique<Peer>(path("s"));
    EXPECT_TRUE(poll_until([&] { return connections.size() == 1; }));
    return peer;
  }

  static SocketTest* of(void* context) { return static_cast<SocketTest*>(context); }

  // A zero-terminated message; a chunked message read whole, its chunks joined with "|".
  static void on_message(Buffer* message, void* context, Connection*) {
    of(context)->messages.emplace_back(message->get_unmanaged_array(), message->length());
  }
  static void on_chunked(void* context, SocketASync::Message::Inbound* message) {
    std::string joined, chunk(1 << 21, '\0');
    while (const unsigned n = message->recv_chunk(chunk.data(), 1 << 21)) {
      joined += (joined.empty() ? "" : "|") + chunk.substr(0, n);
    }
    of(context)->messages.push_back(joined);
  }
  static void on_raw(const char* data, unsigned int length, void* context, Connection*) {
    of(context)->raw.append(data, length);
  }
  static void zero_terminated(Connection* connection) {
    SocketASync::Encoding::ZeroTerminated::create_encoding(connection, on_message);
  }
  static void chunked(Connection* connection) {
    SocketASync::Encoding::Chunked::create_encoding(connection, on_chunked);
  }

  const size_t descriptors_before = open_descriptors();
  std::string directory, raw;
  uint16_t port = 0;
  std::function<void(Connection*)> accepted;
  std::vector<Connection*> connections;
  Messages messages;
  int closed = 0;
  const std::function<void*(void*, Connection*)> factory = [this](void* context, Connection* c) {
    connections.push_back(c);
    if (accepted) accepted(c);
    return context;
  };
  const std::function<void(void*, Connection*)> ended = [this](void* context, Connection* c) {
    EXPECT_EQ(context, this);
    ++closed;
    std::erase(connections, c);
  };
};
