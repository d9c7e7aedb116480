// What the tests of the programs share: running them, and a distribution server of their own.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "process/child_process.h"

namespace files = std::filesystem;
using Words = std::vector<std::string>;

inline std::string read_file(const files::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void write_file(const files::path& path, const std::string& content) {
  files::create_directories(path.parent_path());
  std::ofstream(path) << content;
}

struct Outcome {
  int status;
  std::string out, err;
};

class ProgramTest : public testing::Test {
 protected:
  ProgramTest() {
    char name[] = "/tmp/runenv-program-XXXXXX";
    directory = mkdtemp(name);
    machine = directory / "machine";
    files::create_directory(machine);
    setenv("CURL_HOME", (directory / "server/curl").c_str(), 1);
  }
  ~ProgramTest() override {
    setenv("PATH", search_path.c_str(), 1);
    files::remove_all(directory);
  }

  ChildProcess::process_t* start(const Words& words, const std::string& tag = "") {
    std::vector<const char*> argv;
    for (const auto& word : words) argv.push_back(word.c_str());
    argv.push_back(nullptr);
    const std::string out = directory / ("out" + tag), err = directory / ("err" + tag);
    using namespace ChildProcess;
    return create_child(argv.data(), {REDIRECT_INHERIT, nullptr}, {REDIRECT_FILE, out.c_str()},
                        {REDIRECT_FILE, err.c_str()}, machine.c_str(), false);
  }
  Outcome finish(ChildProcess::process_t* child, const std::string& tag = "") {
    const int status = ChildProcess::wait(child);
    ChildProcess::destroy(child);
    return {status, read_file(directory / ("out" + tag)), read_file(directory / ("err" + tag))};
  }
  Outcome run(const Words& words) { return finish(start(words)); }

  // Runs the bootstrapper with options on a document of the platform at 5 and the given types.
  Outcome bootstrap(Words options, const Words& types = {}) {
    Words compose{VERSIONS, "compose", "-o", "versions.bin", "5"};
    compose.insert(compose.end(), types.begin(), types.end());
    EXPECT_EQ(run(compose).status, 0);
    options.insert(options.begin(), BOOTSTRAP);
    options.push_back("versions.bin");
    return run(options);
  }

  // Puts a script in the place of a program.
  void stand_in(const char* program, const std::string& script) {
    const files::path path = directory / "bin" / program;
    write_file(path, "#!/bin/sh\n" + script + "\n");
    chmod(path.c_str(), 0755);
    setenv("PATH", ((directory / "bin").string() + ":" + search_path).c_str(), 1);
  }

  files::path directory, machine;
  const std::string search_path = getenv("PATH");
};

// With a distribution server of its own: a platform at 5, the types alpha and beta.
class ServerTest : public ProgramTest {
 protected:
  ServerTest() {
    publish("platform/5", "r1");
    publish("system-types/alpha/1.4", "a1");
    publish("system-types/beta/0.9", "b1");
    files::create_directories(directory / "server");
    EXPECT_EQ(run({LOCAL_SERVER, "start", (directory / "server").string()}).status, 0);
  }
  ~ServerTest() override { run({LOCAL_SERVER, "stop", (directory / "server").string()}); }

  files::path item(const std::string& name) { return directory / "server/www/2/runenv" / name; }

  void publish(const std::string& name, const std::string& version,
               const std::string& platform = "linux-x64") {
    const files::path archive = item(name) / version / (platform + ".tar.gz");
    write_file(directory / "content/file", name + " " + version);
    files::create_directories(archive.parent_path());
    run({"tar", "-C", (directory / "content").string(), "-czf", archive.string(), "file"});
    // Replaced whole: a run that reads it meanwhile finds the old version or the new one.
    write_file(item(name) / "latest.new", version + "\n");
    files::rename(item(name) / "latest.new", item(name) / "latest");
  }

  std::string local(const std::string& file) { return read_file(machine / "runenv" / file); }

  const Words both{"beta=0.9", "alpha=1.4"};
};
