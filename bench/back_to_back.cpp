// The floor under the bootstrapper: back_to_back FILE starts the programs that FILE lists, one a
// line with blanks between the words, each when the one before has ended, and does nothing else.

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: back_to_back FILE\n");
    return 1;
  }
  std::ifstream list(argv[1]);
  for (std::string line; std::getline(list, line);) {
    std::istringstream text(line);
    std::vector<std::string> words{std::istream_iterator<std::string>(text), {}};
    std::vector<char*> child;
    for (auto& word : words) {
      child.push_back(word.data());
    }
    child.push_back(nullptr);
    pid_t pid;
    int status;
    if (posix_spawnp(&pid, child[0], nullptr, nullptr, child.data(), environ) != 0 ||
        waitpid(pid, &status, 0) != pid || status != 0) {
      std::fprintf(stderr, "back_to_back: failed: %s\n", line.c_str());
      return 1;
    }
  }
}
