#include <fcntl.h>
#include <malloc.h>
#include <netinet/tcp.h>
#include <sys/syscall.h>
#include <sys/time.h>

#include <csignal>
#include <regex>
#include <thread>

#include "core/error.h"
#include "core/failure.h"
#include "stream/socket_stream.h"
#include "tests/socket_peer.h"

using std::chrono::milliseconds;

// The system call of this name returns this result and error instead of calling the kernel.
static struct {
  std::string name;
  int result, error;
} fault;

static int call(const char* name, long number, auto... arguments) {
  if (name == fault.name) return errno = fault.error, fault.result;
  return static_cast<int>(syscall(number, arguments...));
}
extern "C" {
int socket(int family, int type, int protocol) noexcept {
  return call("socket", SYS_socket, family, type, protocol);
}
int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
  return call("accept4", SYS_accept4, fd, address, length, flags);
}
int listen(int fd, int backlog) noexcept {
  EXPECT_EQ(backlog, 10);
  return call("listen", SYS_listen, fd, backlog);
}
int connect(int fd, const sockaddr* address, socklen_t length) {
  const auto result = static_cast<int>(syscall(SYS_connect, fd, address, length));
  if (fault.name != "connect") return result;
  fault.name.clear();  // but the connection is made
  return errno = fault.error, -1;
}
}

// Runs an action and prints a line with the Error that it throws.
static void attempt(const auto& action) {
  try {
    action();
  } catch (const Error& error) {
    Runtime.error("%d %s\n", static_cast<int>(error.type), error.message);
  }
}

static std::string outcome(const auto& action) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  attempt(action);
  return testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
}

static milliseconds elapsed(const auto& action) {
  const auto before = std::chrono::steady_clock::now();
  action();
  return std::chrono::ceil<milliseconds>(std::chrono::steady_clock::now() - before);
}

static void expect_flags(int fd) {
  EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fcntl(fd, F_GETFL), O_RDWR | O_NONBLOCK);
}

TEST(SocketMessages, AreFramedAndEndWithTheirLastPiece) {
  const std::pair<std::function<void(Connection*)>, Messages> kRows[] = {
      {[](Connection*) {}, {"b", "c"}},
      {[](Connection* c) { Encoding::ZeroTerminated::create_encoding(c, nullptr); },
       {"\0"s, "b\0\0\0\0"s, "\0"s, "c"}},
      {[](Connection* c) { Encoding::Chunked::create_encoding(c, nullptr); },
       {kEnd, "\0\0\2ab"s + kEnd, kEnd + kEnd, kEnd + kEnd, chunk("c")}}};
  for (const auto& [encode, blocks] : kRows) {
    Connection connection;
    encode(&connection);
    say(&connection, "");
    auto* message = Message::create_outbound(&connection);
    message->send_chunk("ab", 2);
    Buffer& piece = connection.send_queue.tail->bytes;
    const char* const array = piece.array;
    piece.consume(1);  // a part is sent
    finalize_outbound(message);
    EXPECT_EQ(piece.array, array);  // nothing was copied
    for (int i = 0; i < 4; ++i) say(&connection, "");
    Raw::send_raw_block(&connection, "never", 0);
    message = Message::create_outbound(&connection);
    message->send_chunk("c", 1);
    mark_close(&connection);
    Raw::send_raw_block(&connection, "never", 5);
    message->send_chunk(nullptr, 0xFFFFFFFC);
    finalize_outbound(message);
    EXPECT_EQ(queued(connection), blocks);
  }
}

TEST(SocketMessages, AreStreamsOfChunksOfAnySize) {
  static const std::string full(1 << 20, 'f');
  static std::string huge;
  for (size_t i = huge.size(); i < 0x01020304; ++i) huge += static_cast<char>(1 + i % 251);
  static bool ended;
  Connection connection;
  Encoding::Chunked::create_encoding(&connection, [](void*, Message::Inbound* message) {
    InstreamSockImpl input(message);
    Instream stream(input.stream());
    std::string bytes(full.size() + 3, '-');
    EXPECT_EQ(stream.available_bytes(), 0U);
    EXPECT_STREQ(stream.read(true, nullptr), "");  // nothing is held yet
    EXPECT_EQ(input.stream()->read_block(bytes.data(), 1), 1);
    EXPECT_EQ(stream.available_bytes(), huge.size() - 1);
    EXPECT_TRUE(stream.read(true, nullptr) + 1 == huge.substr(1));  // the rest of the chunk
    EXPECT_EQ(input.stream()->read_block(nullptr, 0), 0);           // fetches the next one
    EXPECT_EQ(stream.available_bytes(), full.size());
    EXPECT_TRUE(stream.read_len(bytes.data(), (1 << 20) + 2) && bytes == full + "xy-");
    ended = input.stream()->read_block(bytes.data(), 8) == -1;
  });
  Message::Outbound outbound{&connection};
  EXPECT_EQ(outcome([&] { outbound.send_chunk(nullptr, 0xFFFFFFFC); }),
            "10 A chunk of 4294967292 bytes is too long to be sent\n");
  outbound.send_chunk(huge.data(), 0x01020304);
  {
    OutstreamSockImpl output(&connection);
    output.finalize();  // nothing written: no message
    Outstream stream(output.stream());
    stream.write_len((full + "xy").data(), full.size() + 2);
    output.finalize();
    stream.write("open");  // a message that is not ended
  }
  const Messages sent = queued(connection);
  EXPECT_TRUE(sent ==
              (Messages{"\1\2\3\4" + huge, chunk(full), chunk("xy") + kEnd, chunk("open")}));
  const std::string wire = sent[0] + sent[1] + sent[2];
  size_t at = 0;
  for (; at < 16900000; at += 100000) feed(&connection, wire.substr(at, 100000));
  feed(&connection, wire.substr(at));  // the other chunks arrive complete
  EXPECT_TRUE(ended);
  const auto heap = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
  const size_t before = heap();
  feed(&connection, "\xff\xff\xff\xff begun");  // allocates no memory for the announced length
  EXPECT_LT(heap(), before + 100000);
}

TEST_F(SocketTest, BlockingReadsWaitFailAndExpire) {
  static int late = -1;  // signals write to it
  auto peer = connect_peer();
  Connection* const connection = connections.at(0);
  char bytes[8];
  const auto read = [&] { EXPECT_EQ(Message::Inbound{connection}.recv_chunk(bytes, 8), 1U); };
  const itimerval often{{0, 20000}, {0, 20000}}, once{{}, {0, 20000}};
  std::signal(SIGALRM, [](int) { send(late, "x", 1, MSG_NOSIGNAL); });
  setitimer(ITIMER_REAL, &often, nullptr);  // signals do not prolong the wait
  set_timeout(connection, 1);
  EXPECT_EQ(recv_blocked(connection, bytes, 0), 0U);
  const milliseconds waited = elapsed([&] {
    EXPECT_EQ(outcome(read), "10 Timeout expired while waiting for blocking socket read\n");
  });
  EXPECT_TRUE(waited > milliseconds(990) && waited < milliseconds(5000));
  set_timeout(connection, 0);
  late = peer->fd.get();
  setitimer(ITIMER_REAL, &once, nullptr);
  EXPECT_EQ(outcome(read), "");
  peer.reset();
  EXPECT_EQ(outcome(read), "10 Connection lost when reading a message\n");
  EXPECT_TRUE(connection->marked_closed);
}

TEST_F(SocketTest, QueuesGoOutWholeButNotToTheDead) {
  const std::string big(8 << 20, 'q');
  const auto reader = connect_peer();
  auto vanishing = std::make_unique<Peer>("s");
  Connection* const client = create_client("s", this, ended);
  ASSERT_TRUE(poll_until([&] { return connections.size() == 3; }));
  for (const auto& text : {big, "tail"s}) say(connections[0], text);
  mark_close(connections[0]);  // it is no longer read
  reader->send("never");
  say(connections[1], big);
  for (const char* text : {"1", "2"}) say(client, text);
  Runtime.poll(0);
  EXPECT_EQ(closed, 0);
  EXPECT_LT(queued(*connections[0])[0].size(), big.size());  // a part is gone
  say(client, "3");
  Runtime.shutdown(), Runtime.shutdown();
  EXPECT_LT(elapsed([] { Runtime.poll(5000), Runtime.flush(); }), milliseconds(1000));
  EXPECT_EQ(queued(*client),
            (Messages{"2", "3"}));  // nothing happens while the sockets are stopped
  std::signal(SIGPIPE, SIG_DFL);
  Runtime.startsocket();
  EXPECT_EQ(std::signal(SIGPIPE, SIG_IGN), SIG_IGN);
  EXPECT_EQ(Runtime.pid(), getpid());
  EXPECT_GT(elapsed([] { Runtime.sleep(4294968 + 19); }), milliseconds(19));  // 4294968 overflows
  std::string received;
  std::thread other_side([&] {
    Runtime.sleep(20);
    vanishing.reset();
    received = reader->receive();
  });
  Runtime.flush();
  EXPECT_EQ(closed, 1);
  Runtime.flush();  // nothing queued: returns without polling
  EXPECT_EQ(connections.at(0)->send_queue.tail, nullptr);
  Runtime.poll(0);
  EXPECT_EQ(closed, 2);
  say(client, "4");
  Runtime.flush();
  EXPECT_TRUE(queued(*client).empty());
  other_side.join();
  EXPECT_TRUE(received == big + "tail");
  EXPECT_TRUE(poll_until([&] { return messages == Messages{"1", "2", "3", "4"}; }));
}

TEST_F(SocketTest, AListenerEndsWithItsConnectionsAndOthersGoOn) {
  Listener* const doomed = listen_unix("doomed");
  destroy_listener(doomed);  // no effect before the first poll
  listen_unix("deadly"), listen_unix("later");
  Peer peers[2] = {Peer("doomed"), Peer("doomed")};
  ASSERT_TRUE(poll_until([&] { return connections.size() == 2; }));
  accepted = [&](Connection* connection) {
    if (!connection->name.starts_with("deadly")) return;
    say(connections[0], "dropped");
    destroy_listener(doomed);  // by a callback of another listener, during a pass
    listen_unix("born");
  };
  Peer first("deadly"), second("later");
  Runtime.poll(1000);
  EXPECT_EQ(closed, 2);
  EXPECT_EQ(connections.size(), 2U);  // in the same pass
  EXPECT_EQ(peers[0].receive(), "");
  Peer third("born");
  EXPECT_TRUE(poll_until([&] { return connections.size() == 3; }));
}

TEST_F(SocketTest, EmptyAndThrowingCallablesPassThroughButNothingRunsTwice) {
  Listener* const listener = create_listener("s", this, nullptr, nullptr);
  auto& owned = listener->connections;
  Peer peers[3] = {Peer("s"), Peer("s"), Peer("s")};
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_THROW(Runtime.poll(1000), std::bad_function_call);  // the factory
    EXPECT_EQ(get_context_object(owned.at(i)), nullptr);
  }
  Raw::register_raw_receiver(owned[0], nullptr);
  for (Peer& peer : peers) peer.send("x");
  EXPECT_THROW(Runtime.poll(1000), std::bad_function_call);  // the receiver
  mark_close(owned[0]);
  EXPECT_THROW(Runtime.poll(1000), std::bad_function_call);  // the closed callback
  listener->closed = [&](void*, Connection*) {
    messages.push_back(std::to_string(owned.size()));
    destroy_listener(listener);  // it is already ending
    runenv::throw_failure(messages.back());
  };
  EXPECT_EQ(outcome([&] { destroy_listener(listener); }), "10 2\n");  // the first failure is thrown
  EXPECT_EQ(messages, (Messages{"2", "1"}));  // but all connections ended, one by one
}

TEST_F(SocketTest, CallbacksThatPullTheLayerFromUnderThemselvesEndTheProgram) {
  static Listener* own;
  const auto destroy_own = [](void*, Connection*) { return destroy_listener(own), nullptr; };
  const auto poll_again = [](void*, Connection*) { return Runtime.poll(0), nullptr; };
  const auto ignore = [](void*, Connection*) { return nullptr; };
  const auto run = [](const auto& on_accept, const auto& on_close) {
    alarm(10);  // otherwise it might run for ever
    own = create_listener("own", nullptr, on_accept, on_close);
    std::make_unique<Peer>("own").reset();
    for (;;) Runtime.poll(1000);
  };
  const char* const destroyed = "^Listener 'own' destroyed by a callback of its own!\n";
  const char* const polled = "^Sockets polled by a callback of theirs!\n";
  EXPECT_EXIT(run(destroy_own, ignore), testing::KilledBySignal(SIGABRT), destroyed);
  EXPECT_EXIT(run(ignore, destroy_own), testing::KilledBySignal(SIGABRT), destroyed);
  EXPECT_EXIT(run(poll_again, ignore), testing::KilledBySignal(SIGABRT), polled);
}

TEST_F(SocketTest, FailedAcceptsPauseWhileOthersGoOn) {
  const auto busy = connect_peer();
  Peer first("s");
  const auto failures = [&](int wanted, const char* sent, int result, const std::string& why) {
    fault = {"accept4", result, ENFILE};
    const auto fail = [&] {
      for (closed = 0; closed < wanted; Runtime.poll(1000)) busy->send(sent);
    };
    const milliseconds time = elapsed([&] {
      EXPECT_EQ(outcome(fail).find("Socket error[accept]: " + why + "\nState dump: s:"), 0U);
    });
    fault = {};
    return time;
  };
  const milliseconds doubled = failures(6, "x", -1, "Too many open files in system");
  EXPECT_TRUE(doubled >= milliseconds(10 + 20 + 40 + 80 + 160) && doubled < milliseconds(1200));
  EXPECT_TRUE(poll_until([&] { return connections.size() == 2; }));
  Peer second("s");
  EXPECT_LT(failures(2, "", FD_SETSIZE, "Too many open files"), milliseconds(600));  // a new pause
  EXPECT_TRUE(poll_until([&] { return connections.size() == 3; }));
}

// Compares the output of a script with `lines`. A line begins with "-" if it is always printed,
// with "i" if only with information, with "v" if only with the trace. The letter is repeated as
// often as the line. Ports and descriptors are N, colours are in <>, and | is a line break in a
// dump.
static void expect_lines(const auto& script, const char* lines) {
  const std::pair<std::regex, const char*> kRows[] = {
      {std::regex("(:|-> )[0-9]+(?=['\\s])"), "$1N"},
      {std::regex("\n\x1b\\[0m"), "<0>\n"},
      {std::regex("\x1b\\[([0-9]+)m"), "<$1>"},
      {std::regex("l{108}"), "<longest>"},
      {std::regex("\n  "), "|"}};
  for (const char asked : {'-', 'i', 'v'}) {
    genv_debug_info = asked == 'i';
    genv_debug_verbose = asked == 'v';
    std::string printed = outcome(script), expected, line;
    for (const auto& [what, by] : kRows) printed = std::regex_replace(printed, what, by);
    for (std::istringstream text(lines); std::getline(text, line);) {
      const size_t times = line[0] == '-' || line[0] == asked ? line.find(' ') : 0;
      for (size_t i = 0; i < times; ++i) expected += line.substr(times + 1) + "\n";
    }
    EXPECT_EQ(printed, expected);
  }
}

TEST_F(SocketTest, EveryFailureToCreateIsReported) {
  const std::string longest(107, 'p'), over = longest + "q";
  const auto create_all = [&](const char* address, const char* server, const char* path) {
    return (create_listener(address, "0", "n", this, factory, ended) != nullptr) +
           (create_client(server, "1", this, ended) != nullptr) + (listen_unix(path) != nullptr) +
           (create_client(path, this, ended) != nullptr) +
           (endpoint_create(path, this, nullptr) != nullptr);  // the number of successes
  };
  files::create_directory("dir");
  const auto script = [&] {
    fault = {"socket", FD_SETSIZE, 0};
    EXPECT_EQ(create_all("127.0.0.1", "127.0.0.1", "s"), 0);
    fault = {"listen", -1, EINTR};
    EXPECT_EQ(create_all("127.0.0.1", "127.0.0.1", "no/s"), 0);
    EXPECT_EQ(create_all("localhost", "::1", over.c_str()), 0);
    EXPECT_FALSE(create_listener("192.0.2.1", "0", "n", this, factory, ended));
    EXPECT_FALSE(create_listener("127.0.0.1", "65536", "n", this, factory, ended));
    EXPECT_FALSE(create_client("127.0.0.1", "-1", this, ended));
    for (const char* path : {"s", "dir"}) EXPECT_FALSE(listen_unix(path));
    EXPECT_FALSE(endpoint_sendto(nullptr, over.c_str(), "", 0));
    fault = {};
  };
  expect_lines(script, R"(
i Socket open: 0 -> N [n].
- Socket[0] not open: Bad file descriptor
- Unable to open socket '127.0.0.1:N': Too many open files
--- Unable to create socket: Too many open files
- Socket[0] not open: Interrupted system call
i Unable to connect to 127.0.0.1:1: Connection refused
- Unable to bind socket to 'no/s': No such file or directory
i Unable to connect socket to 'no/s': No such file or directory
- Unable to bind socket to 'no/s': No such file or directory
- Error by getaddrinfo: Name or service not known
- Unable to get address info: Address family for hostname not supported
- Unix domain socket path is too long (108)!
-- Unix domain socket path is to long (108)!
- Socket[0] not open: Cannot assign requested address
- Error by getaddrinfo: Servname not supported for ai_socktype
- Unable to get address info: Servname not supported for ai_socktype
- Unable to listen on 's': Interrupted system call
- Unable to unlink 'dir': Is a directory
- Unix domain socket path is to long (108)!
)");
  EXPECT_EQ(create_all("127.0.0.1", "127.0.0.1", longest.c_str()), 4);
}

TEST_F(SocketTest, ErrorsAreClassifiedAndUnusualOnesDumpTheState) {
  const runenv::unique_fd file(open("/dev/null", O_RDWR));
  fd_set none{}, ready{};
  FD_SET(file.get(), &ready);
  const auto script = [&] {
    Connection c, unknown;
    c.name = "c";
    for (const int error : {EAGAIN, EPIPE, ECONNRESET, ETIMEDOUT, EHOSTUNREACH}) {
      EXPECT_EQ(report_socket_error("recv", &c, error), error != EAGAIN);
    }
    c.fd = -1;
    EXPECT_FALSE(service_connection(&c, &none, &none));
    c.fd = file.get();
    Encoding::ZeroTerminated::create_encoding(&c, [](Buffer*, void*, Connection*) {});
    feed(&c, "hi\0abc"s);
    Raw::send_raw_block(&c, "12345", 5);
    EXPECT_FALSE(service_connection(&c, &ready, &ready));  // read before it is written
    Encoding::Chunked::create_encoding(&c, [](void*, Message::Inbound* message) {
      char byte;
      recv_blocked(message->connection, &byte, 1);
    });
    EXPECT_EQ(Message::Inbound{&c}.recv_chunk(nullptr, 0), 0U);
    Raw::send_raw_block(&c, "x", 1);
    mark_close(&c);
    EXPECT_FALSE(service_connection(&c, &none, &ready));
    attempt([&] { feed(&c, chunk("z") + "\0"s); });
    unknown.encoding_kind = static_cast<EncodingKind>(7);
    Message::Inbound{&unknown}.recv_chunk(nullptr, 0);
  };
  expect_lines(script, R"(
i Connection broken named 'c'.
i Connection reset named 'c'.
i Connection timeout named 'c'.
i Server not reachable for connection named 'c'.
v <32>Collected message on 'c' [2].<0>
v <31>Mark close 'c'.<0>
v <33>Connection 'c' new chunked message.<0>
v <36>Creating inbound message on 'c'.<0>
v <36>Finalized inbound message on 'c'.<0>
- Socket error[recv]: Bad file descriptor
- State dump: c|Sending 0|Has no receiver|Is not marked closed|Has no encoding
- Socket error[recv]: Socket operation on non-socket
- State dump: c|Sending 5|Has receiver|Is not marked closed|Zero terminated encoder:|  Collected 3 bytes
- Receive chunk called, but we are not a stream!
- Socket error[send]: Socket operation on non-socket
- State dump: c|Sending 5 with more blocks waiting|Has receiver|Is marked closed|Chunked encoder:|  Collected no chunks|  Is not streaming|  Is waiting for chunk
- Socket error[recv_blocked]: Socket operation on non-socket
- State dump: c|Sending 5 with more blocks waiting|Has receiver|Is marked closed|Chunked encoder:|  Collected chunks|  Is streaming|  Is staging a chunk
- 10 Socket operation on non-socket
- 11 Socket has an unknown encoding
- 
)");
}

TEST_F(SocketTest, EndpointsExchangePrefixedDatagrams) {
  const std::string full(65531, 'f'), longest(sizeof sockaddr_un{}.sun_path, 'l');
  static EndPoint* b;
  const auto receive = [this, dots = ":"s](void*, const void* payload, unsigned short n,
                                           const char* sender, EndPoint* self) mutable {
    const std::string text(static_cast<const char*>(payload), n);
    if (text == "end") endpoint_destroy(self), endpoint_destroy(self);
    if (text == "kill") endpoint_destroy(b);  // although it has something to receive
    note(this, sender + (dots += ".") + text);
    if (text == "throw") throw std::runtime_error(text);
  };
  const auto script = [&] {
    messages.clear();
    unlink(longest.c_str());
    EndPoint* const a = endpoint_create("a", nullptr, receive);
    b = endpoint_create("b", nullptr, receive);
    const auto send_to = [a](const char* to, const std::string& bytes) {  // false even on success
      const auto length = static_cast<unsigned short>(bytes.size());
      EXPECT_FALSE(endpoint_sendto(a, to, bytes.data(), length));
    };
    send_to("nobody", "x");
    for (const auto& bytes : {full, full + "f"}) send_to("b", bytes);
    const Peer nameless("b", SOCK_DGRAM), named("b", SOCK_DGRAM);
    const sockaddr_un name = unix_address(longest);
    EXPECT_EQ(bind(named.fd.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
    for (const char* bytes : {"QVIX", "QVI", "QVIR"}) nameless.send(bytes);
    named.send("QVIRx");
    send_to("b", "throw");
    EXPECT_THROW(poll_until([] { return false; }), std::runtime_error);
    send_to("b", "end");  // destroyed inside its own callback
    EXPECT_TRUE(poll_until([] { return active_state.endpoints.size() == 1; }));
    EXPECT_TRUE(files::exists("b"));  // the file stays, and is replaced
    b = endpoint_create("b", nullptr, receive);
    expect_flags(b->fd);
    send_to("b", "dropped");
    endpoint_sendto(b, "a", "kill", 4);
    char bytes[16] = {};
    EXPECT_EQ(recv(a->fd, bytes, sizeof bytes, MSG_PEEK), 8);
    EXPECT_STREQ(bytes, "QVIRkill");
    Runtime.poll(1000);
    dup2(runenv::unique_fd(open("/dev/null", O_RDWR)).get(), a->fd);  // it cannot receive
    Runtime.poll(1000);
    endpoint_destroy(a);
    Runtime.poll(0);
    EXPECT_EQ(messages, (Messages{"a:." + full, ":..", longest + ":...x", "a:....throw",
                                  "a:.....end", "b:.kill"}));
  };
  expect_lines(script, R"(
i EndPoint 'a' opened.
i EndPoint 'b' opened.
v EndPoint 'b' received message from 'a'.
vvv EndPoint 'b' received message from ''.
v EndPoint 'b' received message from '<longest>'.
vv EndPoint 'b' received message from 'a'.
v EndPoint 'a' received message from 'b'.
v EndPoint 'b' received message from 'a'.
i EndPoint 'b' closed.
i EndPoint 'b' opened.
i EndPoint 'b' closed.
i EndPoint 'a' closed.
i EndPoint 'a' failed to send to 'nobody': No such file or directory
i EndPoint 'b' received message with incorrect prefix!
vv EndPoint 'b' failed to receive.
v EndPoint 'a' failed to receive.
)");
}

TEST_F(SocketTest, SocketsAreSetUpForTheLoopAndTheirLifeIsLogged) {
  const auto option = [](int fd, int level, int name) {
    int value = 0;
    socklen_t length = sizeof value;
    return getsockopt(fd, level, name, &value, &length) == 0 ? value : -1;
  };
  const auto script = [&] {
    closed = 0;
    const auto* tcp = create_listener("127.0.0.1", "0", nullptr, this, factory, ended);
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(tcp->fd, reinterpret_cast<sockaddr*>(&address), &length);
    const std::string port = std::to_string(ntohs(address.sin_port));
    listen_unix("s");
    fault = {"connect", -1, EINTR};
    Client* const clients[] = {create_client("127.0.0.1", port.c_str(), this, ended),
                               create_client("s", this, ended)};
    EXPECT_TRUE(poll_until([&] { return connections.size() == 2; }));
    EXPECT_EQ(option(tcp->fd, SOL_SOCKET, SO_REUSEADDR), 1);
    for (Connection* connection : {static_cast<Connection*>(clients[0]), connections[0]}) {
      EXPECT_EQ(get_context_object(connection), this);
      EXPECT_EQ(option(connection->fd, IPPROTO_TCP, TCP_NODELAY), 1);
      EXPECT_STREQ(get_peer_name(connection), "127.0.0.1");
    }
    EXPECT_STREQ(get_peer_name(clients[1]), "");
    for (const int fd : {tcp->fd, clients[0]->fd, connections[0]->fd}) expect_flags(fd);
    EXPECT_GE(elapsed([] { Runtime.poll(60); }), milliseconds(59));  // nothing is ready
    say(clients[1], "");
    mark_close(clients[1]), mark_close(connections[0]);
    EXPECT_TRUE(poll_until([&] { return closed == 4; }));
    for (int i = 0; i < 2; ++i) destroy_listener(active_state.listeners[0]);
  };
  expect_lines(script, R"(
i Socket open: 0 -> N [<no-name>].
i Client '127.0.0.1:N' connected.
i Client 's' connected.
i New connection on '<no-name>' named '<no-name>:N'.
i New connection on 's' named 's:N'.
v <36>Creating outbound message on 's'.<0>
v <36>Finalized outbound message on 's'.<0>
v <31>Mark close 's'.<0>
v <31>Mark close '<no-name>:N'.<0>
i Closing connection on '<no-name>' named '<no-name>:N'.
i Closing connection 's'.
i Connection lost named 's:N'.
i Connection lost named '127.0.0.1:N'.
)");
}
