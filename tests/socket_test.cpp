#include <sys/resource.h>
#include <sys/time.h>

#include <csignal>
#include <thread>

#include "core/error.h"
#include "core/failure.h"
#include "tests/socket_peer.h"

using namespace SocketASync;
using std::chrono::milliseconds;

// What an action prints, and after it the message of the Error that it throws.
static std::string outcome(const auto& action) {
  std::string thrown;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  try {
    action();
  } catch (const Error& error) {
    thrown = error.message;
  }
  return testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr() + thrown;
}

static milliseconds elapsed(const auto& action) {
  const auto before = Clock::now();
  action();
  return std::chrono::ceil<milliseconds>(Clock::now() - before);
}

static void poll_on() {
  poll_until([] { return false; });
}

// Receivers, which note what comes and throw at "throw".
static void note(void* test, const std::string& text) {
  SocketTest::of(test)->messages.push_back(text);
  if (text == "throw") throw std::runtime_error(text);
}
static void raw(Connection* connection) {
  Raw::register_raw_receiver(connection, [](const char* data, unsigned n, void* test, Connection*) {
    note(test, std::string(data, n));
  });
}
static void zero_terminated(Connection* connection) {
  Encoding::ZeroTerminated::create_encoding(connection, [](Buffer* read, void* test, Connection*) {
    const std::string text(read->get_unmanaged_array(), read->length());
    read->consume(read->length());
    note(test, text);
  });
}
static void chunked(Connection* connection) {  // the chunks of a message, joined
  Encoding::Chunked::create_encoding(connection, [](void* test, Message::Inbound* message) {
    std::string joined;
    while (const unsigned length = message->recv_chunk(nullptr, 0)) {
      std::string chunk(length, '-');
      EXPECT_EQ(message->recv_chunk(chunk.data(), length - 1), length);  // no room: it stays
      EXPECT_EQ(message->recv_chunk(chunk.data(), length), length);
      if (chunk == "throw") note(test, chunk);
      joined += chunk + "|";
    }
    note(test, joined);
  });
}

static std::string listen_tcp(SocketTest* test) {
  auto* listener = create_listener("127.0.0.1", "0", nullptr, test, test->factory, test->ended);
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(listener->fd, reinterpret_cast<sockaddr*>(&address), &length);
  return std::to_string(ntohs(address.sin_port));
}

TEST_F(SocketTest, BytesOnTheWireInBothDirections) {
  const struct {
    void (*encode)(Connection*);
    std::string first;
    size_t at_once;  // messages out of the first bytes, behind a throw as well
    std::string rest;
    Messages messages;
    std::string sent;
  } kRows[] = {
      {raw, "throw", 1, "a\0b"s, {"throw", "a\0b"s}, "hello"},
      {zero_terminated, "throw\0b\0c"s, 2, "d\0\0"s, {"throw", "b", "cd", ""}, "hello\0\0"s},
      {chunked,  // what the thrower leaves unread is lost
       chunk("throw") + chunk("x") + kEnd + chunk("b") + kEnd + chunk("throw") + "\0\0"s,
       3,
       "\0\1"s + "x" + chunk("xx") + kEnd + kEnd + chunk("f") + kEnd,
       {"throw", "b|", "throw", "", "f|"},
       chunk("hello") + kEnd + kEnd}};
  const std::string port = listen_tcp(this);
  listen_unix("s");
  for (const auto& row : kRows) {
    for (const bool tcp : {true, false}) {
      accepted = row.encode;
      messages.clear();
      Peer peer = tcp ? Peer(static_cast<uint16_t>(std::stoi(port))) : Peer("s");
      peer.send(row.first);
      EXPECT_THROW(poll_on(), std::runtime_error);
      EXPECT_EQ(messages.size(), row.at_once);
      peer.send(row.rest);
      EXPECT_TRUE(poll_until([&] { return messages == row.messages; }));
      Connection* const connection = connections.at(0);
      EXPECT_STREQ(get_peer_name(connection), tcp ? "127.0.0.1" : "");
      say(connection, "hello");
      say(connection, "");
      Raw::send_raw_block(connection, "never", 0);
      mark_close(connection);  // what is queued still goes out, and nothing more is
      Raw::send_raw_block(connection, "never", 5);
      Message::Outbound{connection}.send_chunk(nullptr, 0xFFFFFFFC);
      EXPECT_TRUE(poll_until([&] { return peer.read_available(); }));
      EXPECT_EQ(peer.received, row.sent);
    }
  }
  EXPECT_EQ(closed, 6);
  EXPECT_THROW(create_client(nullptr, port.c_str(), this, ended), std::logic_error);  // no name
  EXPECT_TRUE(poll_until([&] { return closed == 7; }));  // nothing of it stays open
}

TEST_F(SocketTest, ThrowingChunkedCallbackLosesItsOwnMessageOnly) {
  static int taken, calls;  // before a throw: nothing, the first chunk, all
  for (taken = 0; taken <= 2; ++taken) {
    Connection connection;
    Encoding::Chunked::create_encoding(&connection, [](void*, Message::Inbound* message) {
      char byte;
      for (int i = 0; i < taken; ++i) message->recv_chunk(&byte, 1);
      runenv::throw_failure(std::to_string(++calls));
    });
    std::string bytes = chunk("a") + kEnd + chunk("b") + kEnd;
    calls = 0;
    EXPECT_EQ(outcome([&] { connection.receiver(bytes.data(), 18, nullptr, &connection); }), "1");
    EXPECT_EQ(calls, 2);
  }
}

TEST_F(SocketTest, BlockingReadsWaitFailAndExpire) {
  auto peer = connect_peer(chunked);
  Connection* const connection = connections.at(0);
  char bytes[8];
  EXPECT_EQ(recv_blocked(connection, bytes, 0), 0U);
  const auto failure = [&] { return outcome([&] { recv_blocked(connection, bytes, 8); }); };
  set_timeout(connection, 1);
  const itimerval often{{0, 20000}, {0, 20000}}, never{};  // signals do not prolong the wait
  std::signal(SIGALRM, [](int) {});
  setitimer(ITIMER_REAL, &often, nullptr);
  const milliseconds waited = elapsed(
      [&] { EXPECT_EQ(failure(), "Timeout expired while waiting for blocking socket read"); });
  setitimer(ITIMER_REAL, &never, nullptr);
  EXPECT_TRUE(waited > milliseconds(990) && waited < milliseconds(5000));
  EXPECT_FALSE(connection->marked_closed);
  Message::Inbound outside{connection};
  EXPECT_EQ(outcome([&] { EXPECT_EQ(outside.recv_chunk(nullptr, 0), 0U); }),
            "Receive chunk called, but we are not a stream!\n");
  EXPECT_THROW(Message::Outbound{connection}.send_chunk(nullptr, 0xFFFFFFFC), Error);
  connection->encoding_kind = static_cast<EncodingKind>(7);
  EXPECT_EQ(outcome([&] { outside.recv_chunk(bytes, 8); }), "Socket has an unknown encoding\n");
  connection->encoding_kind = EncodingKind::Chunked;
  peer.reset();
  EXPECT_EQ(failure(), "Connection lost when reading a message");
  EXPECT_TRUE(connection->marked_closed);
  EXPECT_TRUE(poll_until([&] { return closed == 1; }));
}

TEST_F(SocketTest, QueuesGoOutWholeButNotToTheDead) {
  const std::string big(8 << 20, 'q');
  const auto reader = connect_peer();
  auto vanishing = std::make_unique<Peer>("s");
  ASSERT_TRUE(poll_until([&] { return connections.size() == 2; }));
  for (Connection* connection : connections) say(connection, big);
  say(connections[0], "tail");
  mark_close(connections[0]);
  Runtime.poll(0);
  EXPECT_EQ(closed, 0);
  EXPECT_LT(connections[0]->send_queue.head->bytes.length(), big.size());  // a part is gone
  std::thread other_side([&] {
    Runtime.sleep(20);
    vanishing.reset();
    while (!reader->read_available()) Runtime.sleep(1);
  });
  Runtime.flush();
  EXPECT_EQ(closed, 1);
  Runtime.flush();  // nothing queued: returns without polling
  EXPECT_EQ(connections.at(0)->send_queue.head, nullptr);
  Runtime.poll(0);
  EXPECT_EQ(closed, 2);
  other_side.join();
  EXPECT_TRUE(reader->received == big + "tail");
}

TEST_F(SocketTest, ListenerEndsWithItsConnectionsAndOthersGoOn) {
  static Listener* doomed;
  doomed = listen_unix("doomed");
  destroy_listener(doomed);  // no poll has taken it up: left untouched
  const auto peer = connect_peer();
  Raw::register_raw_receiver(connections[0], [](const char*, unsigned, void* test, Connection*) {
    destroy_listener(doomed);  // from a callback of another, while the pass goes on
    of(test)->listen_unix("born");
  });
  Peer peers[2] = {Peer("doomed"), Peer("doomed")};
  ASSERT_TRUE(poll_until([&] { return connections.size() == 3; }));
  say(connections[1], "dropped");
  peer->send("x");
  ASSERT_TRUE(poll_until([&] { return closed == 2; }));
  EXPECT_TRUE(peers[0].read_available());
  Peer newcomer("born");
  EXPECT_TRUE(poll_until([&] { return connections.size() == 2; }));
}

TEST_F(SocketTest, EmptyAndThrowingCallablesPassThroughButNothingRunsTwice) {
  Listener* const listener = create_listener("s", this, nullptr, nullptr);
  auto& owned = listener->connections;
  Peer peers[3] = {Peer("s"), Peer("s"), Peer("s")};
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_THROW(poll_on(), std::bad_function_call);  // the factory
    EXPECT_EQ(get_context_object(owned.at(i)), nullptr);
  }
  Raw::register_raw_receiver(owned[0], nullptr);
  for (Peer& peer : peers) peer.send("x");
  EXPECT_THROW(poll_on(), std::bad_function_call);  // the receiver
  mark_close(owned[0]);
  EXPECT_THROW(poll_on(), std::bad_function_call);  // the closed callback
  listener->closed = [&](void*, Connection*) {
    messages.push_back(std::to_string(owned.size()));
    destroy_listener(listener);  // it ends already
    runenv::throw_failure(messages.back());
  };
  EXPECT_EQ(outcome([&] { destroy_listener(listener); }), "2");  // its first failure
  EXPECT_EQ(messages, (Messages{"2", "1"}));                     // yet it ended whole, one by one
}

TEST_F(SocketTest, DestroyingAnEarlierListenerSkipsNone) {
  create_listener(
      "2", listen_unix("1"), [](void* first, Connection*) { return first; },
      [](void* first, Connection*) { destroy_listener(static_cast<Listener*>(first)); });
  listen_unix("3");
  auto leaving = std::make_unique<Peer>("2");
  Runtime.poll(1000);
  leaving.reset();
  Peer waiting("3");
  Runtime.poll(1000);
  EXPECT_EQ(connections.size(), 1U);
}

TEST_F(SocketTest, CallbacksThatPullTheLayerFromUnderThemselvesEndTheProgram) {
  static Listener* own;
  const auto destroy_own = [](void*, Connection*) { return destroy_listener(own), nullptr; };
  const auto poll_again = [](void*, Connection*) { return Runtime.poll(0), nullptr; };
  const auto ignore = [](void*, Connection*) { return nullptr; };
  const auto run = [](const auto& on_accept, const auto& on_close) {
    alarm(10);  // it could as well go on for ever
    own = create_listener("own", nullptr, on_accept, on_close);
    {
      Peer leaving("own");
      Runtime.poll(1000);
    }
    Runtime.poll(1000);
  };
  const char* const destroyed = "Listener 'own' destroyed by a callback of its own!\n";
  const char* const polled = "Sockets polled by a callback of theirs!\n";
  EXPECT_EXIT(run(destroy_own, ignore), testing::KilledBySignal(SIGABRT), destroyed);
  EXPECT_EXIT(run(ignore, destroy_own), testing::KilledBySignal(SIGABRT), destroyed);
  EXPECT_EXIT(run(poll_again, ignore), testing::KilledBySignal(SIGABRT), polled);
}

TEST_F(SocketTest, DescriptorsThatRunOutCostOneConnection) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit full{3, limit.rlim_max}, many{4096, std::max<rlim_t>(4096, limit.rlim_max)};
  const auto busy = connect_peer();
  Peer peer("s");
  std::string dump;
  const auto failures = [&](int wanted, const char* sent) {  // how long they take
    closed = 0;
    return elapsed([&] {
      dump = outcome([&] {
        setrlimit(RLIMIT_NOFILE, &full);
        while (closed < wanted) busy->send(sent), Runtime.poll(1000);
        setrlimit(RLIMIT_NOFILE, &limit);
      });
    });
  };
  EXPECT_GE(failures(6, "x"), milliseconds(10 + 20 + 40 + 80 + 160));
  EXPECT_EQ(dump.rfind("Socket error[accept]: Too many open files\nState dump: s:-1\n", 0), 0U);
  EXPECT_EQ(std::count(dump.begin(), dump.end(), '\n'), 6 * 6);
  EXPECT_TRUE(poll_until([&] { return connections.size() == 2; }));
  Peer another("s");
  EXPECT_LT(failures(2, ""), milliseconds(300));  // the pauses begin anew
  EXPECT_TRUE(poll_until([&] { return connections.size() == 3; }));
  closed = 1;
  if (setrlimit(RLIMIT_NOFILE, &many) != 0) GTEST_SKIP() << "no more descriptors here";
  std::vector<runenv::unique_fd> fillers;
  outcome([&] {  // from here on they fit no descriptor set
    do fillers.emplace_back(dup(STDIN_FILENO));
    while (fillers.back().get() < FD_SETSIZE - 1);
    Peer beyond("s");
    EXPECT_EQ(create_client("s", nullptr, ended), nullptr);
    EXPECT_EQ(endpoint_create("e", nullptr, nullptr), nullptr);
    EXPECT_TRUE(poll_until([&] { return closed == 2; }));
    fillers.clear();
  });
  setrlimit(RLIMIT_NOFILE, &limit);
}

// An endpoint that notes what comes with its sender, and with a dot for every datagram so far.
static EndPoint* open_endpoint(SocketTest* test, const char* path) {
  const auto receive = [dots = ":"s](void* context, const void* payload, unsigned short n,
                                     const char* sender, EndPoint* self) mutable {
    const std::string text(static_cast<const char*>(payload), n);
    if (text == "end") endpoint_destroy(self), endpoint_destroy(self);
    dots += ".";
    note(context, sender + dots + text);
    if (text == "throw") throw std::runtime_error(text);
  };
  return endpoint_create(path, test, receive);
}

static void send_raw(int fd, const char* to, const std::string& bytes) {
  const sockaddr_un address = unix_address(to);
  sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&address),
         sizeof address);
}

// Kept as it is: false for a complete send as well.
static void send_datagram(EndPoint* from, const char* to, const std::string& bytes) {
  const auto length = static_cast<unsigned short>(bytes.size());
  EXPECT_FALSE(endpoint_sendto(from, to, bytes.data(), length));
}

TEST_F(SocketTest, EndpointsExchangePrefixedDatagrams) {
  const std::string full(65531, 'f');
  EndPoint* const a = open_endpoint(this, "a");
  open_endpoint(this, "b");
  const runenv::unique_fd foreign(socket(AF_UNIX, SOCK_DGRAM, 0));
  for (const auto& bytes : {"hi"s, full, full + "f"}) send_datagram(a, "b", bytes);
  for (const auto& bytes : {"QVI"s, "QVIX123"s, "QVIR"s, ""s}) send_raw(foreign.get(), "b", bytes);
  send_datagram(a, "b", "throw");
  EXPECT_THROW(poll_on(), std::runtime_error);
  send_datagram(a, "b", "end");  // destroyed inside its own callback
  EXPECT_TRUE(poll_until([] { return active_state.endpoints.size() == 1; }));
  EXPECT_EQ(messages, (Messages{"a:.hi", "a:.." + full, ":...", "a:....throw", "a:.....end"}));
  EXPECT_TRUE(files::exists("b"));  // the file stays, and is replaced
  EndPoint* const b = open_endpoint(this, "b");
  send_datagram(b, "a", "wire");
  char bytes[16] = {};
  EXPECT_EQ(recv(a->fd, bytes, sizeof bytes, 0), 8);
  EXPECT_STREQ(bytes, "QVIRwire");
  endpoint_destroy(b);
  send_datagram(a, "b", "dropped");
  Runtime.poll(0);
  EXPECT_EQ(messages.size(), 5U);
}

TEST_F(SocketTest, FailedCreationSaysWhy) {
  const std::string longest(107, 'p'), over = longest + "q",
                                       to_long = "Unix domain socket path is to long (108)!\n";
  enum { TcpListener, PathListener, TcpClient, PathClient, AnEndPoint };
  const auto create = [&](int kind, const std::string& at) -> void* {
    const char* const to = at.c_str();
    return kind == TcpListener    ? create_listener(to, "1", "n", this, factory, ended)
           : kind == PathListener ? create_listener(to, this, factory, ended)
           : kind == TcpClient    ? create_client(to, "1", this, ended)
           : kind == PathClient   ? create_client(to, this, ended)
                                  : static_cast<void*>(endpoint_create(to, this, nullptr));
  };
  const struct {
    int kind;
    std::string at, message;
  } kRows[] = {
      {TcpListener, "x y", "Error by getaddrinfo: Name or service not known\n"},
      {TcpListener, "192.0.2.1", "Socket[1] not open: Cannot assign requested address\n"},
      {PathListener, over, "Unix domain socket path is too long (108)!\n"},
      {PathListener, "dir", "Unable to unlink 'dir': Is a directory\n"},
      {PathListener, "no/s", "Unable to bind socket to 'no/s': No such file or directory\n"},
      {TcpClient, "x y", "Unable to get address info: Name or service not known\n"},
      {PathClient, over, to_long},
      {AnEndPoint, over, to_long},
      {AnEndPoint, "no/s", "Unable to bind socket to 'no/s': No such file or directory\n"},
      {TcpClient, "127.0.0.1", "Unable to connect to 127.0.0.1:1: Connection refused\n"},
      {PathClient, "no/s", "Unable to connect socket to 'no/s': No such file or directory\n"}};
  files::create_directory("dir");
  for (const auto& row : kRows) {
    for (const bool info : {true, false}) {
      genv_debug_info = info;
      const bool silent = !info && row.message.find("connect") != std::string::npos;
      EXPECT_EQ(outcome([&] { EXPECT_EQ(create(row.kind, row.at), nullptr); }),
                silent ? "" : row.message);
    }
  }
  EXPECT_EQ(outcome([&] { endpoint_sendto(nullptr, over.c_str(), "", 0); }), to_long);
  EXPECT_TRUE(create(PathListener, longest) != nullptr && create(PathClient, longest) != nullptr);
}

TEST_F(SocketTest, ClientAndEndpointRunTheirCourseAndSaySoWhereAsked) {
  const auto scenario = [&](bool info, bool verbose) {
    genv_debug_info = info;
    genv_debug_verbose = verbose;
    accepted = chunked;
    closed = 0;
    messages.clear();
    std::string lines = outcome([&] {
      const std::string port = listen_tcp(this);
      Client* const client = create_client("127.0.0.1", port.c_str(), this, ended);
      say(client, "\0\0\0\1x\0\0\0\0"s);
      zero_terminated(client);
      EXPECT_TRUE(poll_until([&] { return messages.size() == 1; }));
      Raw::send_raw_block(connections[0], "hi", 3);
      EXPECT_TRUE(poll_until([&] { return messages.size() == 2; }));
      mark_close(connections[0]);
      EXPECT_TRUE(poll_until([&] { return closed == 2; }));
      EndPoint* const endpoint = endpoint_create("e", this, nullptr);
      send_raw(endpoint->fd, "e", "QVIX");
      endpoint_sendto(endpoint, "nobody", "x", 1);
      Runtime.poll(100);
      endpoint_destroy(endpoint);
      Runtime.poll(0);
      destroy_listener(active_state.listeners[0]);
    });
    for (const std::string before : {"127.0.0.1:", "no-name>:", "-> "}) {  // a number
      for (size_t at = 0; (at = lines.find(before, at)) != std::string::npos;) {
        at += before.size();
        lines.erase(at, lines.find_first_not_of("0123456789", at) - at);
      }
    }
    return lines;
  };
  EXPECT_EQ(scenario(false, false), "");
  EXPECT_EQ(scenario(true, false),
            "Socket open: 0 ->  [<no-name>].\nClient '127.0.0.1:' connected.\n"
            "New connection on '<no-name>' named '<no-name>:'.\n"
            "Closing connection on '<no-name>' named '<no-name>:'.\n"
            "Connection lost named '127.0.0.1:'.\n"
            "EndPoint 'e' opened.\nEndPoint 'e' closed.\n"
            "EndPoint 'e' failed to send to 'nobody': No such file or directory\n"
            "EndPoint 'e' received message with incorrect prefix!\n");
  EXPECT_EQ(scenario(false, true),
            "\x1b[36mCreating outbound message on '127.0.0.1:'.\n"
            "\x1b[0m\x1b[36mFinalized outbound message on '127.0.0.1:'.\n"
            "\x1b[0m\x1b[33mConnection '<no-name>:' new chunked message.\n"
            "\x1b[0m\x1b[36mCreating inbound message on '<no-name>:'.\n"
            "\x1b[0m\x1b[36mFinalized inbound message on '<no-name>:'.\n"
            "\x1b[0m\x1b[32mCollected message on '127.0.0.1:' [2].\n"
            "\x1b[0m\x1b[31mMark close '<no-name>:'.\n"
            "\x1b[0mEndPoint 'e' received message from 'e'.\nEndPoint 'e' failed to receive.\n");
}

TEST_F(SocketTest, ErrorsAreClassifiedAndUnusualOnesDumpTheState) {
  Connection connection;
  connection.name = "c";
  const auto report = [&](int errnum) {
    const bool lost = errnum != EAGAIN;
    return outcome([&] { EXPECT_EQ(report_socket_error("recv", &connection, errnum), lost); });
  };
  const std::pair<int, std::string> kOrdinary[] = {
      {EAGAIN, ""},
      {EPIPE, "Connection broken named 'c'.\n"},
      {ECONNRESET, "Connection reset named 'c'.\n"},
      {ETIMEDOUT, "Connection timeout named 'c'.\n"},
      {EHOSTUNREACH, "Server not reachable for connection named 'c'.\n"}};
  for (const auto& [errnum, line] : kOrdinary) {
    EXPECT_EQ(report(errnum), "");
    genv_debug_info = true;
    EXPECT_EQ(report(errnum), line);
    genv_debug_info = false;
  }
  const std::string head =
      "Socket error[recv]: Transport endpoint is not connected\nState dump: c\n  Sending ";
  EXPECT_EQ(report(ENOTCONN),
            head + "0\n  Has no receiver\n  Is not marked closed\n  Has no encoding\n");
  zero_terminated(&connection);
  connection.receiver(const_cast<char*>("abc"), 3, this, &connection);
  Raw::send_raw_block(&connection, "12345", 5);
  EXPECT_EQ(report(ENOTCONN),
            head +
                "5\n  Has receiver\n  Is not marked closed\n  Zero terminated encoder:\n"
                "    Collected 3 bytes\n");
  chunked(&connection);  // replaces the other encoding and frees what that holds
  Raw::send_raw_block(&connection, "6", 1);
  mark_close(&connection);
  const std::string more = head +
                           "5 with more blocks waiting\n  Has receiver\n  Is marked closed\n"
                           "  Chunked encoder:\n    Collected";
  EXPECT_EQ(report(ENOTCONN),
            more + " no chunks\n    Is not streaming\n    Is waiting for chunk\n");
  // As in a running callback: the bytes are only decoded.
  static_cast<ChunkedState*>(connection.encoder_state)->streaming = true;
  std::string bytes = chunk("z") + "\0"s;
  connection.receiver(bytes.data(), 6, this, &connection);
  EXPECT_EQ(report(ENOTCONN), more + " chunks\n    Is streaming\n    Is staging a chunk\n");
}

TEST_F(SocketTest, RuntimeRunsEventsAndWaitsOnlyWithSockets) {
  static std::string order;
  const auto event = [](void* argument) { order += static_cast<const char*>(argument); };
  EXPECT_EQ(Runtime.register_event(event, const_cast<char*>("a")), 0U);
  EXPECT_EQ(Runtime.register_event(event, const_cast<char*>("b")), 1U);
  Runtime.deregister_event(0);
  EXPECT_EQ(Runtime.register_event(nullptr, nullptr), 2U);
  EXPECT_EQ(Runtime.register_event(event, const_cast<char*>("c")), 2U);  // swallowed
  EXPECT_GE(elapsed([] { Runtime.poll(60); }), milliseconds(59));
  EXPECT_EQ(order, "ab");
  Runtime.shutdown();
  Runtime.shutdown();
  EXPECT_LT(elapsed([] { Runtime.poll(5000), Runtime.flush(); }), milliseconds(1000));
  std::signal(SIGPIPE, SIG_DFL);
  Runtime.startsocket();
  EXPECT_EQ(std::signal(SIGPIPE, SIG_IGN), SIG_IGN);  // set again by the second start
  EXPECT_LT(elapsed([] { Runtime.sleep(4294968); }), milliseconds(1000));  // wraps to 704 us
  EXPECT_EQ(Runtime.pid(), getpid());
}

TEST_F(SocketTest, EndOfAMessageGoesOutWithItsLastPiece) {
  const struct {
    void (*encode)(Connection*);
    std::string queued;  // with a bar behind each block
  } kRows[] = {{raw, "b|c|"},
               {zero_terminated, "b\0\0\0\0|\0|c|"s},
               {chunked, "\0\0\2ab"s + kEnd + "|" + kEnd + kEnd + "|" + kEnd + kEnd + "|" +
                             chunk("c") + "|"}};
  for (const auto& row : kRows) {
    Connection connection;
    row.encode(&connection);
    auto* message = Message::create_outbound(&connection);
    message->send_chunk("ab", 2);
    Buffer& piece = connection.send_queue.tail->bytes;
    const char* const array = piece.array;
    piece.consume(1);  // a part is sent
    finalize_outbound(message);
    EXPECT_EQ(piece.array, array);  // nothing was copied
    for (int i = 0; i < 4; ++i) say(&connection, "");
    message = Message::create_outbound(&connection);
    message->send_chunk("c", 1);
    mark_close(&connection);
    finalize_outbound(message);
    std::string queued;
    for (SendBlock* block = connection.send_queue.head; block != nullptr; block = block->next) {
      queued.append(block->bytes.get_unmanaged_array(), block->bytes.length()).append("|");
    }
    EXPECT_EQ(queued, row.queued);
  }
}
