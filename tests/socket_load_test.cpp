// Several hundred connections at once: nothing lost, nothing duplicated, nothing left behind.
#include <malloc.h>
#include <sys/wait.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <latch>
#include <random>
#include <thread>

#include "core/error.h"
#include "tests/socket_peer.h"

using namespace SocketASync;

// What one peer does: sends messages of any size up to 1 MiB, pauses, checks every echo, and now
// and then vanishes in the middle.
class LoadPeer {
 public:
  LoadPeer(const std::string& path, bool in_chunks, unsigned seed)
      : peer(path), chunked(in_chunks), random(seed) {}

  void talk(int messages) {
    for (int i = 0; i < messages; ++i) {
      std::string message(size_t{1} << random() % 21, static_cast<char>('a' + random() % 26));
      message.resize(1 + random() % message.size());
      const std::string bytes = encode(message);
      if (random() % 40 == 0) {
        write(bytes.substr(0, random() % bytes.size()));
        return peer.vanish();
      }
      write(bytes);
      if (random() % 8 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(random() % 5));
      std::string echo(bytes.size(), '\0');
      if (recv(peer.fd, echo.data(), echo.size(), MSG_WAITALL) != ssize_t(echo.size()) ||
          echo != bytes) {
        ++wrong;
      }
      ++echoed;
    }
  }

  void end() { peer.vanish(); }

  static inline std::atomic<int> echoed = 0, wrong = 0;

 private:
  std::string encode(const std::string& message) const {
    return chunked ? chunk(message) + kEnd : message + '\0';
  }
  void write(const std::string& bytes) {
    for (size_t sent = 0; sent < bytes.size();) {
      const ssize_t n = ::send(peer.fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (n < 0) return;
      sent += static_cast<size_t>(n);
    }
  }

  Peer peer;
  bool chunked;
  std::mt19937 random;
};

static int received = 0;

static void echo(Connection* connection, const char* data, unsigned length) {
  ++received;
  Message::Outbound* const answer = Message::create_outbound(connection);
  answer->send_chunk(data, length);
  Message::finalize_outbound(answer);
}

static void echo_message(Buffer* message, void*, Connection* connection) {
  echo(connection, message->get_unmanaged_array(), static_cast<unsigned>(message->length()));
}

static void echo_chunks(void*, Message::Inbound* message) {
  std::string text;
  while (const unsigned n = message->recv_chunk(nullptr, 0)) {
    const size_t start = text.size();
    text.resize(start + n);
    message->recv_chunk(text.data() + start, n);
  }
  echo(message->connection, text.data(), static_cast<unsigned>(text.size()));
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
        LoadPeer peer(path(i % 2 == 0 ? "zero" : "chunked"), i % 2 != 0, seed + i);
        connected.arrive_and_wait();
        peer.talk(kMessages);
        peer.end();
        --running;
      });
    }
    while (running > 0 || !connections.empty()) {
      try {
        Runtime.poll(20);
      } catch (const Error& error) {  // a peer that vanished inside a chunked message
        EXPECT_STREQ(error.message, "Connection lost when reading a message");
      }
      most = std::max(most, connections.size());
    }
    for (std::thread& thread : threads) thread.join();
  }

  static constexpr int kConnections = 400, kMessages = 12;
  size_t most = 0;
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
  const size_t memory = mallinfo2().uordblks, descriptors = open_descriptors();
  run_peers(kConnections);
  EXPECT_LE(mallinfo2().uordblks, memory + 65536);
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_EQ(LoadPeer::wrong, 0);
  EXPECT_GE(received, LoadPeer::echoed);  // some peers vanished before their echo
  EXPECT_EQ(closed, 2 * kConnections);
  std::printf("%zu connections at once, %d messages echoed\n", most, LoadPeer::echoed.load());
}

// Resident memory of this process, in KiB.
static long resident() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0, in_memory = 0;
  statm >> pages >> in_memory;
  return in_memory * (sysconf(_SC_PAGESIZE) / 1024);
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
  const std::string address = path("hostile");
  std::string flood;  // answered, and the answers never read
  for (int i = 0; i < 100; ++i) {
    flood += chunk(std::string(1000, 'f')) + kEnd;
  }
  const std::string deeds[] = {"",
                               "\xff\xfe garbage",
                               std::string(2, '\0'),
                               "\xff\xff\xff\xff"
                               "begun",
                               kEnd,
                               flood};
  Runtime.poll(0);
  const long before = resident();
  const pid_t attackers = fork();
  if (attackers == 0) {
    std::vector<std::unique_ptr<Peer>> peers;
    for (size_t i = 0; i < kPeers; ++i) {
      peers.push_back(std::make_unique<Peer>(address));
      peers.back()->send(deeds[i % std::size(deeds)]);
    }
    pause();
  }
  ASSERT_TRUE(poll_until([&] { return connections.size() == kPeers; }));
  Peer honest(address);
  honest.send(chunk("hello") + kEnd);
  ASSERT_TRUE(poll_until([&] {
    honest.read_available();
    return honest.received.size() == 13;
  }));
#ifndef __SANITIZE_ADDRESS__  // which keeps what is freed for a while
  EXPECT_LT(resident() - before, 64 * 1024);
#else
  EXPECT_GT(before, 0);
#endif
  kill(attackers, SIGKILL);
  waitpid(attackers, nullptr, 0);
  EXPECT_TRUE(poll_until([&] { return connections.size() == 1; }));
  EXPECT_EQ(closed, kPeers);
}
