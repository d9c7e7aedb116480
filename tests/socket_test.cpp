#include <csignal>
#include <thread>

#include "core/error.h"
#include "tests/socket_peer.h"

using namespace SocketASync;
using Messages = std::vector<std::string>;

static std::string chunk(const std::string& bytes) {
  std::string header(4, '\0');
  for (size_t i = 0; i < 4; ++i) {
    header[i] = static_cast<char>(bytes.size() >> (24 - 8 * i));
  }
  return header + bytes;
}

static const std::string kEnd = chunk("");

template <typename Action>
static std::string error_message(const Action& action) {
  try {
    action();
  } catch (const Error& error) {
    return error.message;
  }
  return "(none)";
}

TEST_F(SocketTest, BytesOnTheWireInBothDirections) {
  using Encode = void (*)(Connection*);
  const struct {
    Encode encode;
    std::string inbound;
    Messages messages;
    std::string outbound;  // "hello", then an empty message
  } kRows[] = {{[](Connection* c) { Raw::register_raw_receiver(c, on_raw); }, "a\0b"s, {}, "hello"},
               {[](Connection* c) { Encoding::ZeroTerminated::create_encoding(c, on_message); },
                "ab\0cd\0\0e\0"s,
                {"ab", "cd", "", "e"},
                "hello\0\0"s},
               {[](Connection* c) { Encoding::Chunked::create_encoding(c, on_chunked); },
                chunk("xyz") + kEnd + kEnd + chunk("1") + chunk("23") + kEnd,
                {"xyz", "", "1|23"},
                chunk("hello") + kEnd + kEnd}};
  listen_tcp();
  listen_unix("stream");
  for (const auto& row : kRows) {
    for (const bool tcp : {true, false}) {
      accepted = row.encode;
      Peer peer = tcp ? Peer(port) : Peer(path("stream"));
      ASSERT_TRUE(poll_until([&] { return connections.size() == 1; }));
      Connection* const connection = connections[0];
      EXPECT_STREQ(get_peer_name(connection), tcp ? "127.0.0.1" : "");
      peer.send(row.inbound);
      const size_t raw_wanted = row.messages.empty() ? row.inbound.size() : 0;
      EXPECT_TRUE(poll_until(
          [&] { return messages.size() == row.messages.size() && raw.size() == raw_wanted; }));
      EXPECT_EQ(messages, row.messages);
      EXPECT_EQ(raw, row.messages.empty() ? row.inbound : "");
      Message::Outbound* const hello = Message::create_outbound(connection);
      hello->send_chunk("hello", 5);
      Message::finalize_outbound(hello);
      Message::finalize_outbound(Message::create_outbound(connection));
      Raw::send_raw_block(connection, "never", 0);
      mark_close(connection);  // what is queued still goes out, and nothing more is
      Raw::send_raw_block(connection, "never", 5);
      EXPECT_TRUE(poll_until([&] { return peer.read_available(), peer.ended; }));
      EXPECT_EQ(peer.received, row.outbound);
      messages.clear();
      raw.clear();
    }
  }
  EXPECT_EQ(closed, 6);
}

TEST_F(SocketTest, ChunkIsTakenOnlyWithRoomForIt) {
  listen_unix("s");
  accepted = [](Connection* c) {
    Encoding::Chunked::create_encoding(c, [](void* context, Message::Inbound* message) {
      char bytes[4] = {};
      auto& seen = of(context)->messages;
      for (const unsigned capacity : {0U, 2U, 3U}) {
        const unsigned n = message->recv_chunk(capacity == 0 ? nullptr : bytes, capacity);
        seen.push_back(std::to_string(n) + bytes);
      }
      seen.push_back(std::to_string(message->recv_chunk(nullptr, 0)));
    });
  };
  Peer peer(path("s"));
  peer.send(chunk("xyz") + kEnd);
  ASSERT_TRUE(poll_until([&] { return messages.size() == 4; }));
  EXPECT_EQ(messages, (Messages{"3", "3", "3xyz", "0"}));
  Message::Inbound outside{connections[0]};
  testing::internal::CaptureStderr();
  EXPECT_EQ(outside.recv_chunk(nullptr, 0), 0U);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Receive chunk called, but we are not a stream!\n");
  connections[0]->encoding_kind = static_cast<EncodingKind>(7);
  EXPECT_EQ(error_message([&] { outside.recv_chunk(nullptr, 0); }),
            "Socket has an unknown encoding\n");
  connections[0]->encoding_kind = EncodingKind::Chunked;
}

TEST_F(SocketTest, CallbackThatThrowsLeavesTheDecoderUsable) {
  listen_unix("zero");
  listen_unix("chunked");
  // Each takes one piece and throws once: what it leaves unread is a message of its own.
  accepted = [](Connection* c) {
    if (c->name.find("zero") != std::string::npos) {
      Encoding::ZeroTerminated::create_encoding(c, [](Buffer* b, void* context, Connection* c2) {
        on_message(b, context, c2);
        b->consume(b->length());
        if (of(context)->messages.size() == 1) throw std::runtime_error("once");
      });
    } else {
      Encoding::Chunked::create_encoding(c, [](void* context, Message::Inbound* message) {
        char bytes[4] = {};
        message->recv_chunk(bytes, 4);
        of(context)->messages.push_back(bytes);
        if (of(context)->messages.size() == 1) throw std::runtime_error("once");
      });
    }
  };
  for (const bool chunked : {false, true}) {
    Peer peer(path(chunked ? "chunked" : "zero"));
    peer.send(chunked ? chunk("a") + chunk("b") : "a\0"s);
    EXPECT_THROW(poll_until([] { return false; }), std::runtime_error);
    peer.send(chunked ? kEnd : "b\0\0"s);
    ASSERT_TRUE(poll_until([&] { return messages.size() == 3; }));
    EXPECT_EQ(messages, (Messages{"a", "b", ""}));
    messages.clear();
    peer.vanish();
    EXPECT_TRUE(poll_until([&] { return connections.empty(); }));
  }
}

TEST_F(SocketTest, BlockingReadsWaitFailAndExpire) {
  listen_unix("s");
  Peer peer(path("s"));
  ASSERT_TRUE(poll_until([&] { return connections.size() == 1; }));
  Connection* const connection = connections[0];
  char bytes[8];
  EXPECT_EQ(recv_blocked(connection, bytes, 0), 0U);
  std::thread late([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    peer.send("late");
  });
  EXPECT_EQ(recv_blocked(connection, bytes, 8), 4U);
  late.join();
  set_timeout(connection, 1);
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(error_message([&] { recv_blocked(connection, bytes, 8); }),
            "Timeout expired while waiting for blocking socket read");
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(990));
  EXPECT_FALSE(connection->marked_closed);
  peer.vanish();
  EXPECT_EQ(error_message([&] { recv_blocked(connection, bytes, 8); }),
            "Connection lost when reading a message");
  EXPECT_TRUE(connection->marked_closed);
  EXPECT_TRUE(poll_until([&] { return closed == 1; }));
}

TEST_F(SocketTest, PeerThatVanishesInsideAChunkedCallbackEndsOnlyItsConnection) {
  listen_unix("s");
  accepted = [](Connection* c) { Encoding::Chunked::create_encoding(c, on_chunked); };
  Peer other(path("s"));
  {
    Peer peer(path("s"));
    peer.send(chunk("begun"));
  }
  const std::string message = error_message([&] { poll_until([] { return false; }); });
  EXPECT_EQ(message, "Connection lost when reading a message");
  EXPECT_TRUE(poll_until([&] { return closed == 1; }));
  other.send(chunk("x") + kEnd);
  EXPECT_TRUE(poll_until([&] { return messages == Messages{"x"}; }));
}

TEST_F(SocketTest, MarkedConnectionWritesOutAllOverManyPasses) {
  listen_tcp();
  const std::string big(8 << 20, 'q');
  Peer peer(port);
  ASSERT_TRUE(poll_until([&] { return connections.size() == 1; }));
  Raw::send_raw_block(connections[0], big.data(), static_cast<unsigned>(big.size()));
  Raw::send_raw_block(connections[0], "tail", 4);
  mark_close(connections[0]);
  Runtime.poll(0);
  EXPECT_EQ(closed, 0);
  EXPECT_LT(connections[0]->send_queue_head->bytes.length(), big.size());  // a part is gone
  EXPECT_TRUE(poll_until([&] { return peer.read_available(), peer.ended; }));
  EXPECT_EQ(peer.received, big + "tail");
  EXPECT_EQ(closed, 1);
}

TEST_F(SocketTest, FlushWaitsForOutputButNotForTheDead) {
  listen_tcp();
  Peer reader(port);
  Peer vanishing(port);
  ASSERT_TRUE(poll_until([&] { return connections.size() == 2; }));
  const std::string big(4 << 20, 'q');
  for (Connection* connection : connections) {
    Raw::send_raw_block(connection, big.data(), static_cast<unsigned>(big.size()));
  }
  std::thread other_side([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    vanishing.vanish();
    while (reader.received.size() < big.size()) {
      reader.read_available();
    }
  });
  Runtime.flush();
  other_side.join();
  EXPECT_EQ(closed, 1);
  ASSERT_EQ(connections.size(), 1U);
  EXPECT_EQ(connections[0]->send_queue_head, nullptr);
  Runtime.flush();  // nothing queued: returns without polling
}

TEST_F(SocketTest, ClientsTalkToListenersAndEndOnce) {
  listen_tcp();
  listen_unix("s");
  accepted = [](Connection* c) { Encoding::ZeroTerminated::create_encoding(c, on_message); };
  int client_ends = 0;
  const auto client_closed = [&](void* context, Connection*) {
    EXPECT_EQ(context, &client_ends);
    ++client_ends;
  };
  Client* const tcp =
      create_client("127.0.0.1", std::to_string(port).c_str(), &client_ends, client_closed);
  Client* const local = create_client(path("s").c_str(), &client_ends, client_closed);
  ASSERT_TRUE(tcp != nullptr && local != nullptr);
  EXPECT_EQ(tcp->name, "127.0.0.1:" + std::to_string(port));
  EXPECT_EQ(get_context_object(local), &client_ends);
  Raw::send_raw_block(tcp, "from tcp", 9);
  Raw::send_raw_block(local, "from unix", 10);
  ASSERT_TRUE(poll_until([&] { return messages.size() == 2; }));
  mark_close(tcp);  // one end by us, the other by the peer
  mark_close(connections[connections[0]->name.starts_with("test") ? 1 : 0]);
  EXPECT_TRUE(poll_until([&] { return client_ends == 2 && closed == 2; }));
}

TEST_F(SocketTest, ListenerEndsWithItsConnectionsAndOthersGoOn) {
  Listener* const doomed = listen_unix("doomed");
  destroy_listener(doomed);  // no poll has taken it up: left untouched
  listen_unix("other");
  EXPECT_TRUE(std::filesystem::exists(path("doomed")));
  Peer peers[3] = {Peer(path("doomed")), Peer(path("doomed")), Peer(path("other"))};
  ASSERT_TRUE(poll_until([&] { return connections.size() == 3; }));
  std::sort(connections.begin(), connections.end(),
            [](const Connection* a, const Connection* b) { return a->name < b->name; });
  Raw::send_raw_block(connections[0], "dropped", 7);
  // Destroyed by a callback of another listener, while the pass goes on.
  Raw::register_raw_receiver(connections[2], [](const char*, unsigned, void* context, Connection*) {
    auto& listeners = active_state.listeners;
    const auto found = std::find_if(listeners.begin(), listeners.end(), [&](const Listener* l) {
      return l->name == of(context)->path("doomed");
    });
    destroy_listener(*found);
    of(context)->listen_unix("born");
  });
  peers[2].send("x");
  ASSERT_TRUE(poll_until([&] { return closed == 2; }));
  peers[0].read_available();
  EXPECT_TRUE(peers[0].ended);
  Peer newcomer(path("born"));
  EXPECT_TRUE(poll_until([&] { return connections.size() == 2; }));
}

TEST_F(SocketTest, FailedAcceptIsLostOnceAndDoesNotSpin) {
  listen_unix("s");
  Runtime.poll(0);
  Peer peer(path("s"));
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  testing::internal::CaptureStderr();  // takes a descriptor itself
  const rlimit full{3, limit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &full);
  Runtime.poll(1000);
  const size_t made = connections.size();  // for the failed accept
  const auto before = std::chrono::steady_clock::now();
  Runtime.poll(100);  // loses it, and waits although the listener is readable
  const auto waited = std::chrono::steady_clock::now() - before;
  setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_EQ(made, 1U);
  EXPECT_EQ(closed, 1);
  EXPECT_GE(waited, std::chrono::milliseconds(90));
  EXPECT_TRUE(poll_until([&] { return connections.size() == 1; }));
  EXPECT_NE(testing::internal::GetCapturedStderr().find("Bad file descriptor"), std::string::npos);
  EXPECT_EQ(closed, 1);
}

TEST_F(SocketTest, DescriptorBeyondTheSetsIsNeverWatched) {
  listen_unix("s");
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit more{4096, std::max<rlim_t>(4096, limit.rlim_max)};
  if (setrlimit(RLIMIT_NOFILE, &more) != 0) GTEST_SKIP() << "no more descriptors here";
  testing::internal::CaptureStderr();
  std::vector<int> fillers;
  while (fillers.empty() || fillers.back() < FD_SETSIZE - 1) {
    fillers.push_back(dup(STDIN_FILENO));
  }
  Peer peer(path("s"));
  EXPECT_EQ(create_client(path("s").c_str(), nullptr, [](void*, Connection*) {}), nullptr);
  EXPECT_EQ(endpoint_create(path("e").c_str(), nullptr, nullptr), nullptr);
  EXPECT_TRUE(poll_until([&] { return closed == 1; }));
  testing::internal::GetCapturedStderr();
  std::for_each(fillers.begin(), fillers.end(), close);
  setrlimit(RLIMIT_NOFILE, &limit);
}

TEST_F(SocketTest, ListenerEndsWholeThoughAClosedCallbackThrows) {
  int ends = 0;
  Listener* const listener = create_listener(
      "127.0.0.1", "0", nullptr, this,
      [this](void*, Connection* c) -> void* {
        connections.push_back(c);
        return nullptr;
      },
      [&](void*, Connection*) {
        ++ends;
        throw std::runtime_error("closed");
      });
  EXPECT_EQ(listener->name, "<no-name>");
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(listener->fd, reinterpret_cast<sockaddr*>(&address), &length);
  Peer first(ntohs(address.sin_port)), second(ntohs(address.sin_port));
  ASSERT_TRUE(poll_until([&] { return connections.size() == 2; }));
  EXPECT_THROW(destroy_listener(listener), std::runtime_error);
  EXPECT_EQ(ends, 2);
}

TEST_F(SocketTest, EmptyCallablesThrowButNothingRunsTwice) {
  Listener* const listener = create_listener(path("s").c_str(), nullptr, nullptr, nullptr);
  Peer peer(path("s"));
  EXPECT_THROW(poll_until([] { return false; }), std::bad_function_call);  // the factory
  ASSERT_EQ(listener->connections.size(), 1U);
  Raw::register_raw_receiver(listener->connections[0], nullptr);
  peer.send("x");
  EXPECT_THROW(poll_until([] { return false; }), std::bad_function_call);  // the receiver
  mark_close(listener->connections[0]);
  EXPECT_THROW(Runtime.poll(0), std::bad_function_call);  // the closed callback
  EXPECT_TRUE(listener->connections.empty());
  Runtime.poll(0);
}

TEST_F(SocketTest, EndpointsExchangePrefixedDatagrams) {
  static std::vector<std::string> seen;
  seen.clear();
  const auto receive = [](void* context, const void* payload, unsigned short length,
                          const char* sender, EndPoint* endpoint) {
    seen.push_back(of(context)->path(sender[0] == '\0' ? "" : "a") + " " +
                   std::string(static_cast<const char*>(payload), length));
    EXPECT_EQ(endpoint->context, context);
  };
  EndPoint* const a = endpoint_create(path("a").c_str(), this, receive);
  EndPoint* b = endpoint_create(path("b").c_str(), this, receive);
  const sockaddr_un address = Peer::unix_address(path("b"));
  const int foreign = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const std::string full(65531, 'f');
  EXPECT_FALSE(endpoint_sendto(a, path("b").c_str(), "hi", 2));  // false for a complete send too
  EXPECT_FALSE(endpoint_sendto(a, path("b").c_str(), full.data(), 65531));
  EXPECT_FALSE(endpoint_sendto(a, path("b").c_str(), full.data(), 65532));
  EXPECT_FALSE(endpoint_sendto(a, path("nobody").c_str(), "hi", 2));
  for (const auto& bytes : {"QVI"s, "QVIX123"s, "QVIR"s, ""s}) {
    EXPECT_EQ(sendto(foreign, bytes.data(), bytes.size(), 0,
                     reinterpret_cast<const sockaddr*>(&address), sizeof address),
              static_cast<ssize_t>(bytes.size()));
  }
  ASSERT_TRUE(poll_until([&] { return seen.size() == 3; }));
  EXPECT_EQ(seen, (Messages{path("a") + " hi", path("a") + " " + full, path("") + " "}));
  EXPECT_FALSE(endpoint_sendto(b, path("a").c_str(), "wire", 4));
  char bytes[16] = {};
  EXPECT_EQ(recv(a->fd, bytes, sizeof bytes, 0), 8);
  EXPECT_STREQ(bytes, "QVIRwire");
  endpoint_destroy(b);
  EXPECT_FALSE(endpoint_sendto(a, path("b").c_str(), "dropped", 7));
  Runtime.poll(0);
  EXPECT_TRUE(std::filesystem::exists(path("b")));  // the file stays and is replaced
  b = endpoint_create(path("b").c_str(), this,
                      [](void*, const void*, unsigned short, const char*, EndPoint* self) {
                        endpoint_destroy(self);  // from inside its own callback
                      });
  endpoint_sendto(a, path("b").c_str(), "end", 3);
  EXPECT_TRUE(poll_until([&] { return active_state.endpoints.size() == 1; }));
  close(foreign);
}

TEST_F(SocketTest, FailedCreationSaysWhy) {
  const std::string longest = directory + "/" + std::string(107 - directory.size() - 1, 'p');
  const std::string too_long = longest + "q";
  std::filesystem::create_directory(path("dir"));
  const auto none = [](void*, Connection*) -> void* { return nullptr; };
  const auto end = [](void*, Connection*) {};
  genv_debug_info = true;
  const struct {
    std::function<void*()> create;
    std::string message;
  } kRows[] = {
      {[&] { return create_listener("no address", "1", "n", nullptr, none, end); },
       "Error by getaddrinfo: Name or service not known\n"},
      {[&] { return create_listener("192.0.2.1", "1", "n", nullptr, none, end); },
       "Socket[1] not open: Cannot assign requested address\n"},
      {[&] { return create_listener(too_long.c_str(), nullptr, none, end); },
       "Unix domain socket path is too long (108)!\n"},
      {[&] { return create_listener(path("dir").c_str(), nullptr, none, end); },
       "Unable to unlink '" + path("dir") + "': Is a directory\n"},
      {[&] { return create_listener(path("no/s").c_str(), nullptr, none, end); },
       "Unable to bind socket to '" + path("no/s") + "': No such file or directory\n"},
      {[&] { return create_client("no address", "1", nullptr, end); },
       "Unable to get address info: Name or service not known\n"},
      {[&] { return create_client("127.0.0.1", "1", nullptr, end); },
       "Unable to connect to 127.0.0.1:1: Connection refused\n"},
      {[&] { return create_client(too_long.c_str(), nullptr, end); },
       "Unix domain socket path is to long (108)!\n"},
      {[&] { return create_client(path("no").c_str(), nullptr, end); },
       "Unable to connect socket to '" + path("no") + "': No such file or directory\n"},
      {[&] { return endpoint_create(too_long.c_str(), nullptr, nullptr); },
       "Unix domain socket path is to long (108)!\n"},
      {[&] { return endpoint_create(path("no/e").c_str(), nullptr, nullptr); },
       "Unable to bind socket to '" + path("no/e") + "': No such file or directory\n"},
  };
  for (const auto& row : kRows) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(row.create(), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), row.message);
  }
  genv_debug_info = false;
  testing::internal::CaptureStderr();
  EXPECT_EQ(create_client(path("no").c_str(), nullptr, end), nullptr);  // silent without info
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  testing::internal::CaptureStderr();
  EndPoint* const endpoint = endpoint_create(path("e").c_str(), nullptr, nullptr);
  EXPECT_FALSE(endpoint_sendto(endpoint, too_long.c_str(), "x", 1));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unix domain socket path is to long (108)!\n");
  EXPECT_NE(create_listener(longest.c_str(), this, factory(), ended()), nullptr);
  EXPECT_NE(create_client(longest.c_str(), nullptr, end), nullptr);
}

TEST_F(SocketTest, DiagnosticLinesHaveTheirGatesAndColours) {
  accepted = [](Connection* c) { Encoding::Chunked::create_encoding(c, on_chunked); };
  const auto scenario = [&](bool info, bool verbose) {
    genv_debug_info = info;
    genv_debug_verbose = verbose;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    listen_unix("s");
    Client* client = create_client(path("s").c_str(), this, [](void*, Connection*) {});
    Message::Outbound* message = Message::create_outbound(client);
    message->send_chunk("\0\0\0\1x\0\0\0\0", 9);
    Message::finalize_outbound(message);
    Encoding::ZeroTerminated::create_encoding(client, on_message);
    EXPECT_TRUE(poll_until([&] { return messages.size() == 1; }));
    Raw::send_raw_block(connections[0], "hi", 3);
    EXPECT_TRUE(poll_until([&] { return messages.size() == 2; }));
    mark_close(connections[0]);
    EXPECT_TRUE(poll_until([&] { return active_state.clients.empty(); }));
    EndPoint* endpoint = endpoint_create(path("e").c_str(), this, nullptr);
    endpoint_sendto(endpoint, path("nobody").c_str(), "x", 1);
    const sockaddr_un address = Peer::unix_address(path("e"));
    EXPECT_EQ(sendto(endpoint->fd, "QVIX", 4, 0, reinterpret_cast<const sockaddr*>(&address),
                     sizeof address),
              4);
    Runtime.poll(100);
    endpoint_sendto(endpoint, path("e").c_str(), "x", 1);
    Runtime.poll(100);
    endpoint_destroy(endpoint);
    Runtime.poll(0);
    destroy_listener(active_state.listeners[0]);
    messages.clear();
    return testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
  };
  EXPECT_EQ(scenario(false, false), "");
  const std::string s = path("s"), e = path("e");
  std::string fd;  // of the accepted connection, part of its name
  const std::string lines = scenario(true, false);
  for (size_t at = lines.find("named '" + s + ":") + 8 + s.size(); std::isdigit(lines[at]); ++at) {
    fd += lines[at];
  }
  EXPECT_EQ(lines, "Client '" + s + "' connected.\nNew connection on '" + s + "' named '" + s +
                       ":" + fd + "'.\n" + "Closing connection on '" + s + "' named '" + s + ":" +
                       fd + "'.\n" + "Connection lost named '" + s + "'.\n" + "EndPoint '" + e +
                       "' opened.\n" + "EndPoint '" + e + "' closed.\n" + "EndPoint '" + e +
                       "' failed to send to '" + path("nobody") + "': No such file or directory\n" +
                       "EndPoint '" + e + "' received message with incorrect prefix!\n");
  accepted = [](Connection* c) {
    c->name = "server";
    Encoding::Chunked::create_encoding(c, on_chunked);
  };
  EXPECT_EQ(scenario(false, true), "\x1b[36mCreating outbound message on '" + s + "'.\n\x1b[0m" +
                                       "\x1b[36mFinalized outbound message on '" + s +
                                       "'.\n\x1b[0m" +
                                       "\x1b[33mConnection 'server' new chunked message.\n\x1b[0m" +
                                       "\x1b[36mCreating inbound message on 'server'.\n\x1b[0m" +
                                       "\x1b[36mFinalized inbound message on 'server'.\n\x1b[0m" +
                                       "\x1b[32mCollected message on '" + s + "' [2].\n\x1b[0m" +
                                       "\x1b[31mMark close 'server'.\n\x1b[0m" + "EndPoint '" + e +
                                       "' received message from '" + e + "'.\n" + "EndPoint '" + e +
                                       "' received message from '" + e + "'.\n" + "EndPoint '" + e +
                                       "' failed to receive.\n");
}

TEST_F(SocketTest, ErrorsAreClassifiedAndUnusualOnesDumpTheState) {
  Connection connection;
  connection.name = "c";
  genv_debug_info = true;
  const struct {
    int errnum;
    bool lost;
    const char* line;
  } kRows[] = {{EAGAIN, false, ""},
               {EPIPE, true, "Connection broken named 'c'.\n"},
               {ECONNRESET, true, "Connection reset named 'c'.\n"},
               {ETIMEDOUT, true, "Connection timeout named 'c'.\n"},
               {EHOSTUNREACH, true, "Server not reachable for connection named 'c'.\n"}};
  for (const auto& row : kRows) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(report_socket_error("recv", &connection, row.errnum), row.lost);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), row.line);
  }
  const auto dump = [&] {
    testing::internal::CaptureStderr();
    EXPECT_TRUE(report_socket_error("send", &connection, ENOTCONN));
    return testing::internal::GetCapturedStderr();
  };
  const std::string head =
      "Socket error[send]: Transport endpoint is not connected\nState dump: c\n";
  EXPECT_EQ(dump(), head +
                        "  Sending 0\n  Has no receiver\n  Is not marked closed\n"
                        "  Has no encoding\n");
  connection.context_object = this;
  Encoding::ZeroTerminated::create_encoding(&connection, on_message);
  connection.receiver(const_cast<char*>("abc"), 3, this, &connection);
  Raw::send_raw_block(&connection, "12345", 5);
  EXPECT_EQ(dump(), head +
                        "  Sending 5\n  Has receiver\n  Is not marked closed\n"
                        "  Zero terminated encoder:\n    Collected 3 bytes\n");
  free_encoder_state(connection.encoding_kind, connection.encoder_state);
  Encoding::Chunked::create_encoding(&connection, on_chunked);
  Raw::send_raw_block(&connection, "6", 1);
  connection.marked_closed = true;
  const std::string chunked = head +
                              "  Sending 5 with more blocks waiting\n  Has receiver\n"
                              "  Is marked closed\n  Chunked encoder:\n";
  EXPECT_EQ(dump(), chunked +
                        "    Collected no chunks\n    Is not streaming\n"
                        "    Is waiting for chunk\n");
  auto* state = static_cast<ChunkedState*>(connection.encoder_state);
  state->streaming = true;  // as in a running callback: the bytes are only decoded
  const std::string bytes = chunk("z") + "\0"s;
  connection.receiver(const_cast<char*>(bytes.data()), 6, this, &connection);
  EXPECT_EQ(dump(), chunked + "    Collected chunks\n    Is streaming\n    Is staging a chunk\n");
}

TEST_F(SocketTest, RuntimeRunsEventsAndWaitsOnlyWithSockets) {
  const auto elapsed = [](uint32_t milliseconds) {
    const auto before = std::chrono::steady_clock::now();
    Runtime.poll(milliseconds);
    return std::chrono::steady_clock::now() - before;
  };
  static std::string order;
  const auto note = [](void* argument) { order += static_cast<const char*>(argument); };
  EXPECT_EQ(Runtime.register_event(note, const_cast<char*>("a")), 0U);
  EXPECT_EQ(Runtime.register_event(note, const_cast<char*>("b")), 1U);
  Runtime.deregister_event(0);
  EXPECT_EQ(Runtime.register_event(nullptr, nullptr), 2U);
  EXPECT_EQ(Runtime.register_event(note, const_cast<char*>("c")), 2U);  // swallowed
  EXPECT_GE(elapsed(60), std::chrono::milliseconds(59));
  EXPECT_EQ(order, "ab");
  Runtime.shutdown();
  Runtime.shutdown();
  EXPECT_LT(elapsed(5000), std::chrono::milliseconds(1000));
  Runtime.flush();
  std::signal(SIGPIPE, SIG_DFL);
  Runtime.startsocket();
  EXPECT_EQ(std::signal(SIGPIPE, SIG_IGN), SIG_IGN);  // set again by the second start
  const auto before = std::chrono::steady_clock::now();
  Runtime.sleep(4294968);  // wraps to 704 microseconds
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(1));
  EXPECT_EQ(Runtime.pid(), getpid());
}
