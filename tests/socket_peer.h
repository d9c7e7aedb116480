// What the socket tests share: a scratch directory, the layer's side of a conversation, and raw
// sockets for the other side.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "runtime/runtime_core.h"
#include "socket/socket_async.h"

using namespace std::string_literals;

inline size_t open_descriptors() {
  const std::filesystem::directory_iterator listing("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(listing), end(listing)));
}

// Runs the loop until `done`, at most ten seconds.
template <typename Done>
bool poll_until(const Done& done) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    Runtime.poll(10);
  }
  return true;
}

// A raw socket of the test's own.
class Peer {
 public:
  explicit Peer(uint16_t port) : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }
  explicit Peer(const std::string& path) : fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = unix_address(path);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  Peer(const Peer&) = delete;
  ~Peer() { vanish(); }

  static sockaddr_un unix_address(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
  }

  void send(const std::string& bytes) {
    ASSERT_EQ(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
  }

  // Reads what is there; `ended` becomes true when the other side has closed.
  void read_available() {
    char bytes[65536];
    for (ssize_t n; (n = recv(fd, bytes, sizeof bytes, MSG_DONTWAIT)) >= 0;) {
      if (n == 0) {
        ended = true;
        return;
      }
      received.append(bytes, static_cast<size_t>(n));
    }
  }

  void vanish() {
    if (fd >= 0) {
      close(fd);
      fd = -1;
    }
  }

  int fd;
  std::string received;
  bool ended = false;
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
    SocketASync::poll(0);
    while (!SocketASync::active_state.listeners.empty()) {
      SocketASync::destroy_listener(SocketASync::active_state.listeners.front());
    }
    for (auto* client : SocketASync::active_state.clients) {
      client->marked_closed = true;
      while (client->send_queue_head != nullptr) {
        Runtime.poll(1);
      }
    }
    for (auto* endpoint : SocketASync::active_state.endpoints) {
      endpoint_destroy(endpoint);
    }
    Runtime.poll(0);
    EXPECT_TRUE(SocketASync::active_state.clients.empty());
    EXPECT_TRUE(SocketASync::active_state.endpoints.empty());
    std::filesystem::remove_all(directory);
    EXPECT_EQ(open_descriptors(), descriptors_before);
  }

  std::string path(const char* name) const { return directory + "/" + name; }

  // A listener that sets up each connection with `accepted` and counts those that have ended.
  SocketASync::Listener* listen_tcp() {
    auto* listener =
        SocketASync::create_listener("127.0.0.1", "0", "test", this, factory(), ended());
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(listener->fd, reinterpret_cast<sockaddr*>(&address), &length);
    port = ntohs(address.sin_port);
    return listener;
  }
  SocketASync::Listener* listen_unix(const char* name) {
    return SocketASync::create_listener(path(name).c_str(), this, factory(), ended());
  }

  std::function<void*(void*, SocketASync::Connection*)> factory() {
    return [this](void* context, SocketASync::Connection* connection) {
      EXPECT_EQ(context, this);
      connections.push_back(connection);
      if (accepted) {
        accepted(connection);
      }
      return static_cast<void*>(this);
    };
  }
  std::function<void(void*, SocketASync::Connection*)> ended() {
    return [this](void*, SocketASync::Connection* connection) {
      ++closed;
      std::erase(connections, connection);
    };
  }

  static SocketTest* of(void* context) { return static_cast<SocketTest*>(context); }

  // A zero-terminated message; a chunked message read whole; its chunks joined with "|".
  static void on_message(Buffer* message, void* context, SocketASync::Connection*) {
    of(context)->messages.emplace_back(message->get_unmanaged_array(), message->length());
  }
  static void on_chunked(void* context, SocketASync::Message::Inbound* message) {
    std::string joined;
    std::string chunk(1 << 21, '\0');
    while (const unsigned n = message->recv_chunk(chunk.data(), 1 << 21)) {
      joined += (joined.empty() ? "" : "|") + chunk.substr(0, n);
    }
    of(context)->messages.push_back(joined);
  }
  static void on_raw(const char* data, unsigned int length, void* context,
                     SocketASync::Connection*) {
    of(context)->raw.append(data, length);
  }

  const size_t descriptors_before = open_descriptors();
  std::string directory;
  uint16_t port = 0;
  std::function<void(SocketASync::Connection*)> accepted;
  std::vector<SocketASync::Connection*> connections;
  std::vector<std::string> messages;
  std::string raw;
  int closed = 0;
};
