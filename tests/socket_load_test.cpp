// Several hundred connections at once: nothing lost, nothing duplicated, nothing left behind.
#include <malloc.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <latch>
#include <random>
#include <thread>

#include "core/error.h"
#include "tests/socket_peer.h"

using namespace SocketASync;

static constexpr int kConnections = 400, kMessages = 12;
static std::atomic<int> echoed = 0, wrong = 0;
static int received = 0;

// What one peer does: sends messages of any size up to 1 MiB, pauses, checks every echo, and now
// and then vanishes in the middle.
static void talk(Peer& peer, bool in_chunks, unsigned seed) {
  std::mt19937 random(seed);
  for (int i = 0; i < kMessages; ++i) {
    std::string message(size_t{1} << random() % 21, static_cast<char>('a' + random() % 26));
    message.resize(1 + random() % message.size());
    const std::string bytes = in_chunks ? chunk(message) + kEnd : message + '\0';
    if (random() % 40 == 0) return peer.send(bytes.substr(0, random() % bytes.size()));
    peer.send(bytes);
    if (random() % 8 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(random() % 5));
    std::string echo(bytes.size(), '\0');
    const ssize_t n = recv(peer.fd.get(), echo.data(), echo.size(), MSG_WAITALL);
    wrong += n != static_cast<ssize_t>(echo.size()) || echo != bytes;
    ++echoed;
  }
}

static void echo_message(Buffer* message, void*, Connection* connection) {
  ++received;
  say(connection, std::string(message->get_unmanaged_array(), message->length()));
}

static void echo_chunks(void*, Message::Inbound* message) {
  std::string text;
  while (const unsigned n = message->recv_chunk(nullptr, 0)) {
    const size_t start = text.size();
    text.resize(start + n);
    message->recv_chunk(text.data() + start, n);
  }
  ++received;
  say(message->connection, text);
}

// Bytes on the heap; none are counted where a sanitizer replaces it.
static size_t heap() {
  const auto use = mallinfo2();
  return use.uordblks + use.hblkhd;
}

class SocketLoadTest : public SocketTest {
 protected:
  // All peers connect, then all talk at once, until the last is gone.
  void run_peers(unsigned seed) {
    std::latch connected(kConnections);
    std::atomic<int> running = kConnections;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kConnections; ++i) {
      threads.emplace_back([&, i] {
        Peer peer(i % 2 == 0 ? "zero" : "chunked");
        connected.arrive_and_wait();
        talk(peer, i % 2 != 0, seed + i);
        --running;
      });
    }
    while (running > 0 || !connections.empty()) {
      try {
        Runtime.poll(20);
      } catch (const Error& error) {  // a peer that vanished inside a chunked message
        EXPECT_STREQ(error.message, "Connection lost when reading a message");
      }
    }
    for (std::thread& thread : threads) thread.join();
  }
};

TEST_F(SocketLoadTest, NothingIsLostAndNothingStays) {
  accepted = [](Connection* c) {
    if (c->name.find("zero") != std::string::npos) {
      Encoding::ZeroTerminated::create_encoding(c, echo_message);
    } else {
      Encoding::Chunked::create_encoding(c, echo_chunks);
    }
  };
  listen_unix("zero");
  listen_unix("chunked");
  run_peers(0);
  const size_t memory = heap();
  run_peers(kConnections);
  EXPECT_LE(heap(), memory + 65536);
  EXPECT_EQ(wrong, 0);
  EXPECT_GE(received, echoed);  // some peers vanished before their echo
  EXPECT_EQ(closed, 2 * kConnections);
}

// 900 peers that send garbage, half a header, a claim of 4 GiB, nothing, or a lot without ever
// reading what comes back, from a process of their own; one honest peer among them is served.
TEST_F(SocketLoadTest, HostilePeersCostLittleAndStopNobody) {
  static constexpr int kPeers = 900;
  accepted = [](Connection* c) {
    Encoding::Chunked::create_encoding(c, [](void* context, Message::Inbound* message) {
      set_timeout(message->connection, 1);
      try {
        echo_chunks(context, message);
      } catch (const Error&) {  // it stopped in the middle of a message
        mark_close(message->connection);
      }
    });
  };
  listen_unix("hostile");
  std::string flood;  // answered, and the answers never read
  for (int i = 0; i < 100; ++i) flood += chunk(std::string(1000, 'f')) + kEnd;
  const std::string deeds[] = {"",
                               "\xff\xfe garbage",
                               "\0\0"s,
                               "\xff\xff\xff\xff"
                               "begun",
                               kEnd,
                               flood};
  Runtime.poll(0);
  const size_t before = heap();
  const pid_t attackers = fork();
  if (attackers == 0) {
    std::vector<std::unique_ptr<Peer>> peers;
    for (size_t i = 0; i < kPeers; ++i) {
      peers.push_back(std::make_unique<Peer>("hostile"));
      peers.back()->send(deeds[i % std::size(deeds)]);
    }
    pause();
  }
  ASSERT_TRUE(poll_until([&] { return connections.size() == kPeers; }));
  Peer honest("hostile");
  honest.send(chunk("hello") + kEnd);
  EXPECT_TRUE(poll_until([&] { return honest.read_available(), honest.received.size() == 13; }));
  EXPECT_LT(heap(), before + (size_t{64} << 20));
  kill(attackers, SIGKILL);
  waitpid(attackers, nullptr, 0);
  EXPECT_TRUE(poll_until([&] { return connections.size() == 1; }));
  EXPECT_EQ(closed, kPeers);
}
