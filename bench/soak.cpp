// A server under load: soak [SECONDS [CONNECTIONS]]
//
// In every round, CONNECTIONS honest peers send messages of any size, pause, check every echo, and
// sometimes close their connection within a message. At the same time, as many hostile peers send
// garbage, half a header, a length of 4 GiB, an unfinished message, nothing, or much without
// reading any answer. The exit status is 0 if every echo was right, every connection has ended, and
// memory and descriptors are the same as after the first round.
#include <arpa/inet.h>
#include <malloc.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <latch>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "core/error.h"
#include "core/owner.h"
#include "runtime/runtime_core.h"
#include "socket/socket_async.h"

using namespace SocketASync;
using namespace std::string_literals;

static unsigned peers = 100;  // of either kind
static unsigned accepted = 0, ended = 0, echoed = 0;

static void require(bool right, const char* what) {
  if (!right) {
    throw std::runtime_error(what);
  }
}

// What must not grow: the bytes on the heap, which are not counted under a sanitizer, and the open
// descriptors.
static size_t heap() {
  const auto use = mallinfo2();
  return use.uordblks + use.hblkhd;
}

static auto descriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// The server's side.

static void echo(Connection* connection, const char* data, size_t length) {
  Message::Outbound* const answer = Message::create_outbound(connection);
  if (length != 0) {
    answer->send_chunk(data, static_cast<unsigned>(length));
  }
  Message::finalize_outbound(answer);
  ++echoed;
}

static void echo_message(Buffer* message, void*, Connection* connection) {
  echo(connection, message->get_unmanaged_array(), message->length());
}

static void echo_chunks(void*, Message::Inbound* message) {
  std::string text;
  try {
    while (const unsigned length = message->recv_chunk(nullptr, 0)) {
      const size_t start = text.size();
      text.resize(start + length);
      message->recv_chunk(text.data() + start, length);
    }
  } catch (const Error&) {  // the peer disconnected or stopped within the message
    mark_close(message->connection);
    return;
  }
  echo(message->connection, text.data(), text.size());
}

static void* on_accept(void*, Connection* connection) {
  ++accepted;
  set_timeout(connection, 1);
  if (connection->name.starts_with("zero")) {
    Encoding::ZeroTerminated::create_encoding(connection, echo_message);
  } else {
    Encoding::Chunked::create_encoding(connection, echo_chunks);
  }
  return nullptr;
}

// The peers' side.

static runenv::unique_fd connect_to(const std::string& path) {
  runenv::unique_fd fd(socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un address{AF_UNIX, {}};
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  require(connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
          "a peer cannot connect");
  return fd;
}

static std::string chunk(const std::string& bytes) {
  const uint32_t length = htonl(static_cast<uint32_t>(bytes.size()));
  return std::string(reinterpret_cast<const char*>(&length), 4) + bytes;
}

static void send_whole(int fd, const std::string& bytes) {
  require(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()),
          "a peer cannot send");
}

static void talk(int fd, bool in_chunks, unsigned seed) {
  std::mt19937 random(seed);
  for (int i = 0; i < 12; ++i) {
    std::string message(size_t{1} << random() % 21, static_cast<char>('a' + random() % 26));
    message.resize(1 + random() % message.size());
    const std::string bytes = in_chunks ? chunk(message) + chunk("") : message + '\0';
    if (random() % 40 == 0) {
      return send_whole(fd, bytes.substr(0, random() % bytes.size()));
    }
    send_whole(fd, bytes);
    if (random() % 8 == 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(random() % 5));
    }
    std::string answer(bytes.size(), '\0');
    recv(fd, answer.data(), answer.size(), MSG_WAITALL);
    require(answer == bytes, "an echo is wrong");
  }
}

// All peers connect, then all send at the same time.
static void run_honest(unsigned seed) {
  std::latch connected(peers);
  std::vector<std::jthread> threads;
  for (unsigned i = 0; i < peers; ++i) {
    threads.emplace_back([&connected, seed, i] {
      const bool in_chunks = i % 2 != 0;
      const runenv::unique_fd fd = connect_to(in_chunks ? "chunked" : "zero");
      connected.arrive_and_wait();
      talk(fd.get(), in_chunks, seed + i);
    });
  }
}

static void run_hostile(unsigned) {
  std::string flood;
  for (int i = 0; i < 100; ++i) {
    flood += chunk(std::string(1000, 'f')) + chunk("");
  }
  const std::string deeds[] = {
      "", "\xff\xfe garbage", "\0\0"s, "\xff\xff\xff\xff" + "begun"s, chunk(""), flood};
  std::vector<runenv::unique_fd> fds;
  for (unsigned i = 0; i < peers; ++i) {
    fds.push_back(connect_to("chunked"));
    send_whole(fds.back().get(), i == 0 ? chunk("unfinished") : deeds[i % std::size(deeds)]);
  }
  pause();
}

// Runs peers in their own process, which the kernel kills when this one ends. An exception ends it.
static pid_t start(void (*run)(unsigned), unsigned seed) noexcept {
  const pid_t server = getpid();
  const pid_t process = fork();
  require(process >= 0, "cannot fork");
  if (process == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() == server) {
      run(seed);
    }
    std::_Exit(0);
  }
  return process;
}

static void run_round(unsigned seed) {
  const size_t before = heap();
  const unsigned expected = accepted + 2 * peers;
  const pid_t hostile = start(run_hostile, seed), honest = start(run_honest, seed);
  int status = 0;
  while (waitpid(honest, &status, WNOHANG) == 0 || accepted < expected) {
    Runtime.poll(20);
    require(heap() < before + (size_t{128} << 20), "too much memory taken");
  }
  require(status == 0, "the honest peers have not been served");
  kill(hostile, SIGKILL);
  waitpid(hostile, nullptr, 0);
  while (ended < accepted) {
    Runtime.poll(20);
  }
}

// A new working directory, removed at the end.
struct Directory {
  Directory() { require(mkdtemp(path) != nullptr && chdir(path) == 0, "no directory to work in"); }
  ~Directory() { std::filesystem::remove_all(path); }
  char path[25] = "/tmp/runenv-soak-XXXXXX";
};

static void soak(std::chrono::seconds duration) {
  using Clock = std::chrono::steady_clock;
  const Directory directory;
  const auto closed = [](void*, Connection*) { ++ended; };
  Runtime.startsocket();
  require(create_listener("zero", nullptr, on_accept, closed) != nullptr &&
              create_listener("chunked", nullptr, on_accept, closed) != nullptr,
          "cannot listen");
  const auto end = Clock::now() + duration;
  const auto open = descriptors();
  size_t memory = 0;
  unsigned rounds = 0;
  while (rounds < 2 || Clock::now() < end) {
    alarm(120);  // ends a round that hangs
    run_round(rounds * peers);
    memory = rounds++ == 0 ? heap() : memory;
    require(heap() <= memory + 65536, "memory is left behind");
    require(descriptors() == open, "descriptors are left open");
  }
  std::printf("soak: %u rounds, %u connections, %u echoes: all right\n", rounds, accepted, echoed);
}

int main(int argc, char** argv) {
  try {
    peers = argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : peers;
    require(peers >= 1 && peers <= 400, "usage: soak [SECONDS [CONNECTIONS]], at most 400");
    soak(std::chrono::seconds(argc > 1 ? std::atoi(argv[1]) : 10));
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "soak: %s\n", failure.what());
    return 1;
  }
}
