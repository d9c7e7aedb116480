// Measures the time of whole programs: stopwatch CASE ROUNDS [NAME PREPARE COMMAND]...
//
// Every round runs each COMMAND once, in turn, so that other load on the machine affects all of
// them equally. Before each COMMAND the shell runs its PREPARE, which is not measured. A COMMAND is
// a list of words with blanks between them. Its standard output is dropped. Prints one object per
// NAME, in the form of Google Benchmark's medians. `own_cpu` is the processor time of the program
// itself in nanoseconds, without its child processes; `cpu` includes them. `peak_kib` is the
// largest memory use of any of them.

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

using Words = std::vector<std::string>;

struct Contender {
  std::string name;
  Words prepare, command;
  std::vector<double> wall{}, own_cpu{}, cpu{}, peak_kib{};
};

static pid_t start(const Words& words) {
  std::vector<char*> argv;
  for (const auto& word : words) {
    argv.push_back(const_cast<char*>(word.c_str()));
  }
  argv.push_back(nullptr);
  static posix_spawn_file_actions_t quiet = [] {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    return actions;
  }();
  pid_t pid;
  if (posix_spawnp(&pid, argv[0], &quiet, nullptr, argv.data(), environ) != 0) {
    std::fprintf(stderr, "stopwatch: cannot run %s\n", argv[0]);
    std::exit(1);
  }
  return pid;
}

static rusage finish(pid_t pid, const Words& words) {
  int status;
  rusage usage;
  if (wait4(pid, &status, 0, &usage) != pid || status != 0) {
    std::fprintf(stderr, "stopwatch: %s failed\n", words[0].c_str());
    std::exit(1);
  }
  return usage;
}

static double nanoseconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_usec) * 1e3;
}

// Returns the processor time of the process without its children, as the scheduler counted it. Call
// it while the process is a zombie, when the count is final.
static double own_cpu_of(pid_t pid) {
  double nanoseconds = 0;
  std::ifstream("/proc/" + std::to_string(pid) + "/schedstat") >> nanoseconds;
  return nanoseconds;
}

static void run_once(Contender& contender) {
  finish(start(contender.prepare), contender.prepare);
  const auto from = std::chrono::steady_clock::now();
  const pid_t pid = start(contender.command);
  siginfo_t info;
  waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
  const std::chrono::duration<double, std::nano> wall = std::chrono::steady_clock::now() - from;
  contender.wall.push_back(wall.count());
  contender.own_cpu.push_back(own_cpu_of(pid));
  const rusage usage = finish(pid, contender.command);
  contender.cpu.push_back(nanoseconds(usage.ru_utime) + nanoseconds(usage.ru_stime));
  contender.peak_kib.push_back(static_cast<double>(usage.ru_maxrss));
}

static double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

int main(int argc, char** argv) {
  if (argc < 6 || argc % 3 != 0) {
    std::fprintf(stderr, "usage: stopwatch CASE ROUNDS [NAME PREPARE COMMAND]...\n");
    return 1;
  }
  std::vector<Contender> contenders;
  for (int i = 3; i < argc; i += 3) {
    std::istringstream text(argv[i + 2]);
    contenders.push_back(
        {argv[i], {"sh", "-c", argv[i + 1]}, {std::istream_iterator<std::string>(text), {}}});
  }
  for (int round = 0; round < std::atoi(argv[2]); ++round) {
    for (auto& contender : contenders) {
      run_once(contender);
    }
  }
  for (const auto& contender : contenders) {
    std::printf(R"({"run_name": "%s/%s", "aggregate_name": "median", "real_time": %.0f, )"
                R"("time_unit": "ns", "own_cpu": %.0f, "cpu": %.0f, "peak_kib": %.0f})"
                "\n",
                argv[1], contender.name.c_str(), median(contender.wall), median(contender.own_cpu),
                median(contender.cpu), median(contender.peak_kib));
  }
}
