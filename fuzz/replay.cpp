// Runs a fuzz target without a fuzzer, as one of the ordinary tests: on the seeds, which it
// truncates, changes and joins at random, and on random bytes. A run must free all its memory.
#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size);

int main(int argc, char** argv) {
  std::vector<std::string> seeds;
  std::error_code error;  // a directory that cannot be read has no seeds
  for (const auto& entry : std::filesystem::directory_iterator(argc == 2 ? argv[1] : "", error)) {
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path());
    seeds.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  if (seeds.empty()) {
    std::cerr << "usage: " << argv[0] << " DIRECTORY-OF-SEEDS\n";
    return 1;
  }
  std::sort(seeds.begin(), seeds.end());
  std::mt19937 random(1);
  size_t in_use = 0;
  for (int i = 0; i < 3000; ++i) {
    if (i == 1) in_use = mallinfo2().uordblks;
    std::string input = seeds[random() % seeds.size()];
    if (i % 3 == 0) input += seeds[random() % seeds.size()];
    if (i % 4 == 0) input.resize(random() % (input.size() + 1));
    if (i % 5 == 0) std::generate_n(std::back_inserter(input), random() % 400, random);
    for (size_t change = random() % 4; change != 0 && !input.empty(); --change) {
      input[random() % input.size()] =
          static_cast<char>(random() % 2 == 0 ? random() : random() % 8);
    }
    LLVMFuzzerTestOneInput(reinterpret_cast<const unsigned char*>(input.data()), input.size());
  }
  // malloc counts freed memory at once only without its per-thread cache; CTest sets that. Under a
  // sanitizer, which finds leaks itself, these figures are 0.
  const bool leaks = std::getenv("GLIBC_TUNABLES") != nullptr && mallinfo2().uordblks > in_use;
  if (leaks) std::cerr << "runs leave memory in use\n";
  return leaks ? 1 : 0;
}
