// Files for tests: every test runs in its own empty directory.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace files = std::filesystem;

inline std::string read_file(const files::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void write_file(const files::path& path, const std::string& content) {
  if (path.has_parent_path()) files::create_directories(path.parent_path());
  std::ofstream(path) << content;
}

inline std::ptrdiff_t open_descriptors() {
  return std::distance(files::directory_iterator("/proc/self/fd"), {});
}

class ScratchTest : public testing::Test {
 protected:
  ScratchTest() {
    std::string name = testing::TempDir() + "/runenv-test-XXXXXX";
    directory = files::canonical(mkdtemp(name.data()));
    files::current_path(directory);
    descriptors = open_descriptors();
  }
  ~ScratchTest() override {
    EXPECT_EQ(open_descriptors(), descriptors);
    files::current_path("/");
    files::remove_all(directory);
  }
  std::string directory;
  std::ptrdiff_t descriptors;
};
