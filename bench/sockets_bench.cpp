// Socket servers beside each other: round trips over one to 900 connections, and chunks in both
// directions. Each server runs in a process of its own and is driven by the same client, which
// writes on every connection and then collects every answer.
//
// The floors are bare system calls, which look into nothing: `send/recv` in an epoll loop, and
// `select passes` with the passes of `runenv` (one select, then one read of 4096 bytes and one send
// of what an earlier pass has read per connection). `runenv` serves the round trips with raw
// connections, the chunks with its chunked encoding. `server_ns` is the processor time of the
// server per message or per MiB, which a busy machine blurs less than the time that passes.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
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

static constexpr size_t kMessage = 1 << 20;  // what is sent in chunks per iteration

namespace runenv {

using namespace SocketASync;

static void on_bytes(const char* data, unsigned int length, void*, Connection* connection) {
  Raw::send_raw_block(connection, data, length);
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
    if (service == Service::Bytes) {
      Raw::register_raw_receiver(connection, on_bytes);
    } else {
      Encoding::Chunked::create_encoding(connection, on_chunks);
    }
    return nullptr;
  };
  const auto closed = [](void*, Connection*) {};
  Runtime.startsocket();
  const std::string port = std::to_string(address.port);
  require((address.path.empty()
               ? create_listener("127.0.0.1", port.c_str(), "bench", nullptr, accept, closed)
               : create_listener(address.path.c_str(), nullptr, accept, closed)) != nullptr,
          "create_listener");
  for (;;) {
    Runtime.poll(1000);
  }
}

}  // namespace runenv

// A server in a process of its own, which ends with this object or with this process.
class Running {
 public:
  Running(Server serve, bool tcp, Service service) {
    if (tcp) {
      address.port = free_port();
    } else {
      char directory[] = "/tmp/runenv-bench-XXXXXX";
      require(mkdtemp(directory) != nullptr, "mkdtemp");
      address.path = std::string(directory) + "/s";
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
    if (!address.path.empty()) {
      unlink(address.path.c_str());
      rmdir(address.path.substr(0, address.path.size() - 2).c_str());
    }
  }

  // Nanoseconds that the server has run so far.
  double processor_time() const {
    clockid_t clock;
    timespec time{};
    require(clock_getcpuclockid(process, &clock) == 0 && clock_gettime(clock, &time) == 0,
            "reading the server's clock");
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
  }

  // A connection that the server has accepted: the answer to `greeting` has come back.
  runenv::unique_fd connect(const std::string& greeting) const {
    for (int attempt = 0; attempt < 2000; ++attempt) {  // it may not listen yet
      runenv::unique_fd fd(open_socket(address));
      if (at_address(::connect, fd.get(), address) == 0) {
        std::string answer(greeting.size(), '\0');
        send_at_once(fd.get(), address);
        send(fd.get(), greeting.data(), greeting.size(), MSG_NOSIGNAL);
        require(recv(fd.get(), answer.data(), answer.size(), MSG_WAITALL) ==
                        static_cast<ssize_t>(answer.size()) &&
                    answer == greeting,
                "greeting the server");
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

// One iteration: a message on every connection, and every answer.
static void round_trips(benchmark::State& state, Server serve, bool tcp, size_t connections,
                        size_t size) {
  const Running server(serve, tcp, Service::Bytes);
  const std::string message(size, 'm');
  std::string answer(size, '\0');
  std::vector<runenv::unique_fd> clients;
  for (size_t i = 0; i < connections; ++i) {
    clients.push_back(server.connect("x"));
  }
  const double start = server.processor_time();
  for (auto _ : state) {
    for (const runenv::unique_fd& client : clients) {
      if (send(client.get(), message.data(), size, MSG_NOSIGNAL) != static_cast<ssize_t>(size)) {
        return state.SkipWithError("a message was not sent");
      }
    }
    for (const runenv::unique_fd& client : clients) {
      if (recv(client.get(), answer.data(), size, MSG_WAITALL) != static_cast<ssize_t>(size)) {
        return state.SkipWithError("an answer did not come");
      }
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(connections) * state.iterations());
  state.counters["server_ns"] = (server.processor_time() - start) /
                                static_cast<double>(connections) /
                                static_cast<double>(state.iterations());
}

// One iteration: a message of 1 MiB in chunks, there and back, both directions at once.
static void chunks(benchmark::State& state, Server serve, bool tcp, size_t size) {
  const uint32_t header = htonl(static_cast<uint32_t>(size));
  const std::string end(4, '\0'),
      chunk = std::string(reinterpret_cast<const char*>(&header), 4) + std::string(size, 'c');
  std::string message, answer;
  for (size_t i = 0; i < kMessage / size; ++i) {
    message += chunk;
  }
  message += end;
  answer.resize(message.size());
  const Running server(serve, tcp, Service::Chunks);
  const runenv::unique_fd client = server.connect(chunk + end);
  const double start = server.processor_time();
  for (auto _ : state) {
    for (size_t sent = 0, received = 0; received < message.size();) {
      pollfd ready{client.get(), POLLIN, 0};
      ready.events = sent < message.size() ? POLLIN | POLLOUT : POLLIN;
      ::poll(&ready, 1, -1);
      if ((ready.revents & POLLOUT) != 0) {
        const ssize_t n = send(client.get(), message.data() + sent, message.size() - sent,
                               MSG_DONTWAIT | MSG_NOSIGNAL);
        sent += static_cast<size_t>(std::max<ssize_t>(n, 0));
      }
      if ((ready.revents & ~POLLOUT) != 0) {
        const ssize_t n =
            recv(client.get(), answer.data() + received, answer.size() - received, MSG_DONTWAIT);
        if (n == 0) {
          return state.SkipWithError("the server closed");
        }
        received += static_cast<size_t>(std::max<ssize_t>(n, 0));
      }
    }
  }
  if (answer != message) {
    state.SkipWithError("the answer differs");
  }
  state.SetBytesProcessed(static_cast<int64_t>(kMessage) * state.iterations());
  state.counters["server_ns"] =
      (server.processor_time() - start) / static_cast<double>(state.iterations());
}

static const bool registered = [] {
  const struct {
    const char* name;
    Server serve;
  } kContenders[] = {{"send and recv", system_calls::serve_epoll},
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
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
  setrlimit(RLIMIT_NOFILE, &limit);
  const auto for_each_contender = [&](const std::string& name, const auto& run, auto... arguments) {
    for (const auto& contender : kContenders) {
      benchmark::RegisterBenchmark((name + "/" + contender.name).c_str(), run, contender.serve,
                                   arguments...)
          ->UseRealTime();
    }
  };
  for (const bool tcp : {true, false}) {
    const std::string transport = tcp ? "tcp, " : "unix, ";
    for (const size_t connections : {1U, 16U, 256U, 900U}) {
      const std::string many = connections == 1 ? " connection, " : " connections, ";
      for (const size_t size : {1U, 512U}) {
        for_each_contender(transport + std::to_string(connections) + many + std::to_string(size) +
                               (size == 1 ? " byte" : " bytes"),
                           round_trips, tcp, connections, size);
      }
    }
    for (const size_t size : {4U, 64U}) {
      for_each_contender(transport + "chunks of " + std::to_string(size) + " KiB", chunks, tcp,
                         size * 1024);
    }
  }
  return true;
}();
