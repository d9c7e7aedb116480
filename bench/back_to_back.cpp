// The lower bound for the bootstrapper: back_to_back FILE performs the steps that FILE lists, one
// per line with blanks between the words, and nothing else. A step is a system call on a file, or a
// program to run in a directory:
//
//   mkdir PATH, rmdir PATH, unlink PATH
//   read PATH          the whole file, which must be smaller than 64 KiB
//   write PATH TEXT    creates or replaces the file
//   run DIRECTORY PROGRAM [ARGUMENT]...

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

using Words = std::vector<std::string>;

static bool read_file(const char* path) {
  static char bytes[65536];
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  return read(fd, bytes, sizeof bytes) >= 0 && close(fd) == 0;
}

static bool write_file(const char* path, const std::string& text) {
  const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  return write(fd, text.data(), text.size()) >= 0 && close(fd) == 0;
}

static bool run(const char* directory, std::vector<std::string>::iterator word,
                std::vector<std::string>::iterator end) {
  std::vector<char*> child;
  for (; word != end; ++word) {
    child.push_back(word->data());
  }
  child.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addchdir_np(&actions, directory);
  pid_t pid;
  int status;
  const bool well = posix_spawnp(&pid, child[0], &actions, nullptr, child.data(), environ) == 0 &&
                    waitpid(pid, &status, 0) == pid && status == 0;
  posix_spawn_file_actions_destroy(&actions);
  return well;
}

static bool take(Words& step) {
  const std::string& verb = step[0];
  const char* const path = step[1].c_str();
  return verb == "mkdir"    ? mkdir(path, 0777) == 0
         : verb == "rmdir"  ? rmdir(path) == 0
         : verb == "unlink" ? unlink(path) == 0
         : verb == "read"   ? read_file(path)
         : verb == "write"  ? write_file(path, step.at(2))
                            : run(path, step.begin() + 2, step.end());
}

int main(int argc, char** argv) {
  std::ifstream list(argc == 2 ? argv[1] : "");
  if (!list) {
    std::fprintf(stderr, "usage: back_to_back FILE\n");
    return 1;
  }
  for (std::string line; std::getline(list, line);) {
    std::istringstream text(line);
    Words step{std::istream_iterator<std::string>(text), {}};
    if (step.size() < 2 || !take(step)) {
      std::fprintf(stderr, "back_to_back: failed: %s\n", line.c_str());
      return 1;
    }
  }
}
