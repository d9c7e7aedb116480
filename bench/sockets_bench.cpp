// A comparison of socket servers: round trips over 1 to 900 connections. Each server runs in its
// own process. The client is always the same: it writes on every connection and then reads every
// answer. It sends raw bytes, zero-terminated messages, which a server decodes and encodes, or a
// message of many chunks.
//
// The lower bounds are plain system calls that do not look at the bytes: `send and recv` in an
// epoll loop, and `select passes` with the same passes as `runenv`. `server_ns` is the processor
// time of the server per message. It varies less on a busy machine than the elapsed time.
#include <benchmark/benchmark.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <vector>

#include "bench/sockets_contender.h"
#include "bench/sockets_system_calls.h"
#include "core/owner.h"
#include "runtime/runtime_core.h"
#include "socket/socket_async.h"
#ifdef RUNENV_BENCH_LIBUV
#include "bench/sockets_libuv.h"
#endif
#ifdef RUNENV_BENCH_LIBEVENT
#include "bench/sockets_libevent.h"
#endif
#ifdef RUNENV_BENCH_BOOST
#include "bench/sockets_asio.h"
#endif

namespace runenv {

using namespace SocketASync;

static void on_bytes(const char* data, unsigned int length, void*, Connection* connection) {
  Raw::send_raw_block(connection, data, length);
}

static void on_message(Buffer* message, void*, Connection* connection) {
  Message::Outbound* const answer = Message::create_outbound(connection);
  answer->send_chunk(message->get_unmanaged_array(), static_cast<unsigned>(message->length()));
  Message::finalize_outbound(answer);
}

static void on_chunks(void*, Message::Inbound* message) {
  static char bytes[65536];
  Message::Outbound* const answer = Message::create_outbound(message->connection);
  while (const unsigned int length = message->recv_chunk(bytes, sizeof bytes)) {
    answer->send_chunk(bytes, length);
  }
  Message::finalize_outbound(answer);
}

static void serve(const Address& address, Service service) {
  const auto accept = [service](void*, Connection* connection) -> void* {
    switch (service) {
      case Service::Bytes:
        Raw::register_raw_receiver(connection, on_bytes);
        break;
      case Service::Messages:
        Encoding::ZeroTerminated::create_encoding(connection, on_message);
        break;
      case Service::Chunks:
        Encoding::Chunked::create_encoding(connection, on_chunks);
    }
    return nullptr;
  };
  const auto closed = [](void*, Connection*) {};
  const std::string port = std::to_string(address.port);
  Runtime.startsocket();
  require((address.path.empty()
               ? create_listener("127.0.0.1", port.c_str(), "bench", nullptr, accept, closed)
               : create_listener(address.path.c_str(), nullptr, accept, closed)) != nullptr,
          "create_listener");
  for (;;) {
    Runtime.poll(1000);
  }
}

}  // namespace runenv

// A server in its own process, which ends with this object or with this process.
class Running {
 public:
  Running(Server serve, bool tcp, Service service) {
    if (tcp) {
      address.port = free_port();
    } else {
      address.path = "/tmp/runenv-bench-" + std::to_string(getpid());
    }
    process = fork();
    require(process >= 0, "fork");
    if (process == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      serve(address, service);
      std::_Exit(1);
    }
  }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;
  ~Running() {
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
    unlink(address.path.c_str());
  }

  // Returns the processor time of the server so far, in nanoseconds.
  double processor_time() const {
    clockid_t clock;
    timespec time{};
    require(clock_getcpuclockid(process, &clock) == 0 && clock_gettime(clock, &time) == 0,
            "reading the server's clock");
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
  }

  runenv::unique_fd connect() const {
    for (int attempt = 0; attempt < 2000; ++attempt) {  // the server may not listen yet
      runenv::unique_fd fd(open_socket(address));
      if (at_address(::connect, fd.get(), address) == 0) {
        send_at_once(fd.get(), address);
        return fd;
      }
      usleep(1000);
    }
    require(false, "connect");
    return runenv::unique_fd();
  }

 private:
  static uint16_t free_port() {
    const runenv::unique_fd fd(open_socket({}));
    sockaddr_in chosen{};
    socklen_t length = sizeof chosen;
    require(at_address(bind, fd.get(), {}) == 0, "bind");
    getsockname(fd.get(), reinterpret_cast<sockaddr*>(&chosen), &length);
    return ntohs(chosen.sin_port);
  }

  Address address;
  pid_t process;
};

// In each iteration, sends a message on every connection and reads every answer.
static void round_trips(benchmark::State& state, Server serve, bool tcp, Service service,
                        size_t connections, const std::string& message) {
  const auto size = static_cast<ssize_t>(message.size());
  std::string answer = message;
  const auto ask = [&](const runenv::unique_fd& fd) {
    require(send(fd.get(), message.data(), message.size(), MSG_NOSIGNAL) == size, "send");
  };
  const auto hear = [&](const runenv::unique_fd& fd) {
    require(recv(fd.get(), answer.data(), answer.size(), MSG_WAITALL) == size, "recv");
  };
  const Running server(serve, tcp, service);
  std::vector<runenv::unique_fd> clients;
  for (size_t i = 0; i < connections; ++i) {
    clients.push_back(server.connect());
    ask(clients.back());
    hear(clients.back());  // after the answer, the connection is accepted
  }
  const double start = server.processor_time();
  for (auto _ : state) {
    std::for_each(clients.begin(), clients.end(), ask);
    std::for_each(clients.begin(), clients.end(), hear);
  }
  const auto messages = static_cast<int64_t>(connections) * state.iterations();
  state.SetItemsProcessed(messages);
  state.counters["server_ns"] = (server.processor_time() - start) / static_cast<double>(messages);
  if (answer != message) {
    state.SkipWithError("the answer differs");
  }
}

// Returns 128 KiB in chunks. Socket buffers hold that much, so all can be sent before any is read.
static std::string message_of_chunks(size_t size) {
  std::string message, length(4, '\0');
  runenv::write_big_endian(length.data(), static_cast<uint32_t>(size));
  while (message.size() < 128 * 1024) {
    message += length + std::string(size, 'c');
  }
  return message + std::string(4, '\0');
}

static const bool registered = [] {
  static constexpr std::pair<const char*, Server> kContenders[] = {
      {"send and recv", system_calls::serve_epoll},
      {"select passes", system_calls::serve_select},
#ifdef RUNENV_BENCH_LIBUV
      {"libuv", libuv::serve},
#endif
#ifdef RUNENV_BENCH_LIBEVENT
      {"libevent", libevent::serve},
#endif
#ifdef RUNENV_BENCH_BOOST
      {"asio", asio_server::serve},
#endif
      {"runenv", runenv::serve}};
  static const struct {
    const char* name;
    Service service;
    std::string message;
    std::vector<size_t> connections;
  } kCases[] = {
      {"512 bytes", Service::Bytes, std::string(512, 'b'), {1, 16, 256, 900}},
      {"message of 32 bytes", Service::Messages, std::string(32, 'm') + '\0', {1, 16, 256, 900}},
      {"chunks of 4 KiB", Service::Chunks, message_of_chunks(4096), {1}},
      {"chunks of 64 KiB", Service::Chunks, message_of_chunks(65536), {1}}};
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
  setrlimit(RLIMIT_NOFILE, &limit);
  for (const bool tcp : {true, false}) {
    for (const auto& [name, service, message, connections] : kCases) {
      for (const size_t count : connections) {
        for (const auto& [contender, serve] : kContenders) {
          const std::string many =
              std::to_string(count) + (count == 1 ? " connection, " : " connections, ");
          benchmark::RegisterBenchmark(
              ((tcp ? "tcp, " : "unix, ") + many + name + "/" + contender).c_str(), round_trips,
              serve, tcp, service, count, message)
              ->UseRealTime();
        }
      }
    }
  }
  return true;
}();
