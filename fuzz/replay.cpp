// Runs a fuzz target without a fuzzer, as part of the ordinary tests: on the seeds, on every prefix
// of them, on seeds with bytes changed, joined and repeated at random, and on random bytes.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size);

static void run(const std::string& input) {
  LLVMFuzzerTestOneInput(reinterpret_cast<const unsigned char*>(input.data()), input.size());
}

// The files of a directory; none if it cannot be read.
static std::vector<std::string> read_seeds(const char* directory) {
  std::vector<std::string> seeds;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
    if (!entry.is_regular_file(error)) continue;
    std::ifstream file(entry.path());
    seeds.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return seeds;
}

int main(int argc, char** argv) {
  std::vector<std::string> seeds;
  if (argc == 2) seeds = read_seeds(argv[1]);
  if (seeds.empty()) {
    std::cerr << "usage: " << argv[0] << " DIRECTORY-OF-SEEDS\n";
    return 1;
  }
  for (const std::string& seed : seeds) {
    for (size_t length = 0; length <= seed.size(); ++length) run(seed.substr(0, length));
  }
  std::mt19937 random(1);
  for (int i = 0; i < 3000; ++i) {
    std::string input = seeds[random() % seeds.size()];
    if (i % 3 == 0) input += seeds[random() % seeds.size()];
    if (i % 5 == 0) std::generate_n(std::back_inserter(input), random() % 400, random);
    for (size_t change = random() % 4; change != 0 && !input.empty(); --change) {
      input[random() % input.size()] =
          static_cast<char>(random() % 2 == 0 ? random() : random() % 8);
    }
    run(input);
  }
  return 0;
}
