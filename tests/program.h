// What the tests of the programs share: running them, and a distribution server of their own.
#pragma once

#include <csignal>
#include <memory>

#include "process/child_process.h"
#include "tests/files.h"

struct Outcome {
  int status;
  std::string out, err;
};

// Runs commands of the shell, which finds the programs by name.
class ProgramTest : public ScratchTest {
 protected:
  struct Run {
    ChildProcess::process_t* child;
    std::string out, err;  // where it writes to
    std::shared_ptr<void> owner;
  };

  ProgramTest() {
    // Whoever starts the tests may ignore them, as nohup does.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, SIG_DFL);
    setenv("CURL_HOME", (directory + "/server/curl").c_str(), 1);
    setenv("PATH", (directory + "/bin:" PROGRAM_PATH ":" + search_path).c_str(), 1);
  }

  // In a process group of its own, which is killed where a test does not come to its end.
  Run start(const std::string& command) {
    const std::string name = directory + "/run" + std::to_string(++runs);
    Run run{nullptr, name + ".out", name + ".err", {}};
    const char* const argv[] = {"sh", "-c", command.c_str(), nullptr};
    using namespace ChildProcess;
    run.child = create_child(argv, {REDIRECT_INHERIT, nullptr}, {REDIRECT_FILE, run.out.c_str()},
                             {REDIRECT_FILE, run.err.c_str()}, nullptr, true, true);
    run.owner.reset(run.child, [](process_t* child) {
      if (!child->reaped) ::kill(-child->pid, SIGKILL);
      destroy(child);
    });
    return run;
  }
  static Outcome finish(const Run& run) {
    return {ChildProcess::wait(run.child), read_file(run.out), read_file(run.err)};
  }
  Outcome run(const std::string& command) { return finish(start(command)); }

  // Runs the bootstrapper on a document of the platform at 5 and the given types.
  Outcome bootstrap(const std::string& options = "", const std::string& types = "") {
    return run("runenv-versions compose -o versions.bin 5 " + types + " && exec runenv-bootstrap " +
               options + " versions.bin");
  }

  // Puts a script in the place of a program.
  static void stand_in(const std::string& program, const std::string& script) {
    write_file("bin/" + program, "#!/bin/sh\n" + script + "\n");
    files::permissions("bin/" + program, files::perms::all);
  }

  static std::string local(const std::string& file) { return read_file("runenv/" + file); }
  static std::string fatal(const std::string& message) {
    return "Fatal error[uncaught exception]: " + message + "\n";
  }

  static inline const std::string search_path = getenv("PATH");
  int runs = 0;
};

// With a distribution server of its own: a platform at 5, the types alpha and beta.
class ServerTest : public ProgramTest {
 protected:
  ServerTest() {
    publish("platform/5", "r1");
    publish("system-types/alpha/1.4", "a1");
    publish("system-types/beta/0.9", "b1");
    EXPECT_EQ(run("exec local-server.sh start server").status, 0);
  }
  ~ServerTest() override { run("local-server.sh stop server"); }

  static std::string item(const std::string& name) { return "server/www/2/runenv/" + name; }

  // Publishes what is in the directory "content", with a file that names the version.
  void publish(const std::string& name, const std::string& version,
               const std::string& platform = "linux-x64") {
    write_file("content/file", name + " " + version);
    // The pointer is replaced whole: a run that reads it finds the old version or the new one.
    const Outcome outcome =
        run("mkdir -p " + item(name) + "/" + version + " && cd " + item(name) +
            " && /bin/tar -C \"$OLDPWD/content\" -czf " + version + "/" + platform + ".tar.gz ." +
            " && echo " + version + " >new && mv new latest");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
  }
};
