// Child processes: the time to start one from a small and from a large parent, and the speed of
// reading its output.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "core/buffer.h"
#include "process/child_process.h"

#ifdef RUNENV_BENCH_LIBUV
#include <uv.h>
#endif
#ifdef RUNENV_BENCH_BOOST
#include <boost/process.hpp>
#endif

static constexpr const char* kTrue = "/bin/true";
static constexpr int kOutput = 100 << 20;
static constexpr const char* kWriter[] = {"/usr/bin/head", "-c", "104857600", "/dev/zero", nullptr};

// Memory in small pages that the parent uses while this object exists.
class Resident {
 public:
  explicit Resident(size_t size) : bytes(size) {
    if (bytes != 0) {
      memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
      if (memory == MAP_FAILED) {
        std::abort();
      }
    }
  }
  ~Resident() {
    if (bytes != 0) {
      munmap(memory, bytes);
    }
  }
  Resident(const Resident&) = delete;
  Resident& operator=(const Resident&) = delete;

 private:
  size_t bytes;
  void* memory = nullptr;
};

// Each of these starts /bin/true, waits for its end, and returns whether it succeeded.

static bool run_runenv() {
  const ChildProcess::redirect_t inherit{ChildProcess::REDIRECT_INHERIT, nullptr};
  const char* const argv[] = {kTrue, nullptr};
  ChildProcess::process_t* const child =
      ChildProcess::create_child(argv, inherit, inherit, inherit, nullptr, false);
  const int result = ChildProcess::wait(child);
  ChildProcess::destroy(child);
  return result == 0;
}

static bool run_posix_spawn() {
  const char* const argv[] = {kTrue, nullptr};
  pid_t pid;
  int status;
  return posix_spawn(&pid, kTrue, nullptr, nullptr, const_cast<char* const*>(argv), environ) == 0 &&
         waitpid(pid, &status, 0) == pid && status == 0;
}

#ifdef RUNENV_BENCH_LIBUV
static bool run_libuv() {
  uv_loop_t* const loop = uv_default_loop();
  const char* const argv[] = {kTrue, nullptr};
  uv_stdio_container_t channels[3];
  for (int fd = 0; fd < 3; ++fd) {
    channels[fd].flags = UV_INHERIT_FD;
    channels[fd].data.fd = fd;
  }
  bool succeeded = false;
  uv_process_t process;
  process.data = &succeeded;
  uv_process_options_t options{};
  options.file = kTrue;
  options.args = const_cast<char**>(argv);
  options.stdio = channels;
  options.stdio_count = 3;
  options.exit_cb = [](uv_process_t* ended, int64_t status, int) {
    *static_cast<bool*>(ended->data) = status == 0;
    uv_close(reinterpret_cast<uv_handle_t*>(ended), nullptr);
  };
  return uv_spawn(loop, &process, &options) == 0 && uv_run(loop, UV_RUN_DEFAULT) == 0 && succeeded;
}
#endif

#ifdef RUNENV_BENCH_BOOST
static bool run_boost() {
  boost::process::child child(kTrue);
  child.wait();
  return child.exit_code() == 0;
}
#endif

static void spawn(benchmark::State& state, bool (*run)(), size_t resident) {
  const Resident memory(resident);
  for (auto _ : state) {
    if (!run()) {
      state.SkipWithError("the child failed");
      break;
    }
  }
}

// Each of these reads all output of the writer and returns its length.

static size_t collect_runenv() {
  const ChildProcess::redirect_t inherit{ChildProcess::REDIRECT_INHERIT, nullptr};
  const ChildProcess::redirect_t pipe{ChildProcess::REDIRECT_PIPE, nullptr};
  ChildProcess::process_t* const child =
      ChildProcess::create_child(kWriter, inherit, pipe, inherit, nullptr, false);
  Buffer output(0);
  ChildProcess::read_all(child, ChildProcess::CHANNEL_STDOUT, output);
  ChildProcess::destroy(child);
  return output.length();
}

// System calls only: each read stores its bytes directly in a block that doubles when it is full.
static size_t collect_read() {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) {
    return 0;
  }
  fcntl(fds[0], F_SETPIPE_SZ, 1 << 20);  // as read_all does
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
  pid_t pid = -1;
  posix_spawn(&pid, kWriter[0], &actions, nullptr, const_cast<char* const*>(kWriter), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(fds[1]);

  size_t size = 0;
  size_t capacity = 64 << 10;
  char* bytes = static_cast<char*>(std::malloc(capacity));
  ssize_t n;
  while ((n = read(fds[0], bytes + size, capacity - size)) > 0) {
    size += static_cast<size_t>(n);
    if (size == capacity) {
      capacity *= 2;
      bytes = static_cast<char*>(std::realloc(bytes, capacity));
    }
  }
  benchmark::DoNotOptimize(bytes);
  std::free(bytes);
  close(fds[0]);
  waitpid(pid, nullptr, 0);
  return size;
}

static void collect(benchmark::State& state, size_t (*run)()) {
  for (auto _ : state) {
    if (run() != size_t{kOutput}) {
      state.SkipWithError("output is missing");
      break;
    }
  }
  state.SetBytesProcessed(state.iterations() * kOutput);
}

static void register_spawn(const std::string& parent, size_t resident) {
  const auto contender = [&](const char* name, bool (*run)()) {
    benchmark::RegisterBenchmark(("spawn true, " + parent + "/" + name).c_str(), spawn, run,
                                 resident)
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);
  };
  contender("runenv", run_runenv);
  contender("posix_spawn", run_posix_spawn);
#ifdef RUNENV_BENCH_LIBUV
  contender("libuv", run_libuv);
#endif
#ifdef RUNENV_BENCH_BOOST
  contender("boost", run_boost);
#endif
}

static const bool kRegistered = [] {
  register_spawn("small parent", 0);
  register_spawn("1 GiB parent", size_t{1} << 30);
  const auto contender = [](const char* name, size_t (*run)()) {
    benchmark::RegisterBenchmark(name, collect, run)->UseRealTime()->Unit(benchmark::kMillisecond);
  };
  contender("read_all 100 MiB/runenv", collect_runenv);
  contender("read_all 100 MiB/read", collect_read);
  return true;
}();
