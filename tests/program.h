// Common code for tests of the programs: runs them and a distribution server.
#pragma once

#include <unistd.h>

#include <csignal>

#include "tests/child.h"
#include "tests/files.h"

struct Outcome {
  int status;
  std::string out, err;
};

// A command, its output, and its error message. With a message, its status is 1.
struct Row {
  std::string command, out = "", error = "";
};

// Runs shell commands, with the programs on the search path.
class ProgramTest : public ScratchTest {
 protected:
  struct Run {
    Child child;
    std::string out, err;  // the files of its output
  };

  ProgramTest() {
    // The process that starts the tests may ignore these signals, as nohup does.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, SIG_DFL);
    setenv("CURL_HOME", (directory + "/server/curl").c_str(), 1);
    setenv("PATH", (directory + "/bin:" PROGRAM_PATH ":" + search_path).c_str(), 1);
  }

  Run start(const std::string& command) {
    using namespace ChildProcess;
    const std::string name = directory + "/run" + std::to_string(++runs), out = name + ".out",
                      err = name + ".err";
    return {Child("sh", command.c_str(), kInherit, {REDIRECT_FILE, out.c_str()},
                  {REDIRECT_FILE, err.c_str()}, nullptr, true),
            out, err};
  }
  // Waits, but not for ever.
  static Outcome finish(const Run& run) {
    for (int i = 0; i < 100000 && ChildProcess::is_alive(run.child); ++i) usleep(1000);
    if (!run.child->reaped) ::kill(-run.child->pid, SIGKILL);
    return {ChildProcess::wait(run.child), read_file(run.out), read_file(run.err)};
  }
  Outcome run(const std::string& command) { return finish(start(command)); }

  // Runs a command and checks its output. It must fail with `teller` and `error`, or succeed if
  // `error` is empty. With `tools`, other messages may come before the error.
  void check(const std::string& command, const std::string& out = "", std::string error = "",
             bool tools = false) {
    const Outcome outcome = run(command);
    EXPECT_EQ(outcome.status, error == "" ? 0 : 1) << command;
    EXPECT_EQ(outcome.out, out) << command;
    if (error != "") error = teller + error + "\n";
    if (!tools || !("\n" + outcome.err).ends_with("\n" + error)) {
      EXPECT_EQ(outcome.err, error) << command;
    }
  }

  // Runs the bootstrapper on a document of the platform at 5 and the given types.
  Outcome bootstrap(const std::string& options = "", const std::string& types = "") {
    return run("runenv-versions compose -o versions.bin 5 " + types + " && exec runenv-bootstrap " +
               options + " versions.bin");
  }

  // Replaces a program by a script.
  static void stand_in(const std::string& program, const std::string& script) {
    write_file("bin/" + program, "#!/bin/sh\n" + script + "\n");
    files::permissions("bin/" + program, files::perms::all);
  }

  static std::string local(const std::string& file) { return read_file("runenv/" + file); }

  // Sets $as, a prefix that runs a command as an ordinary user.
  static inline const std::string ordinary =
      "[ $(id -u) -ne 0 ] || { chown -R 65534 .; as='setpriv --reuid 65534 --clear-groups'; }; ";
  static inline const std::string search_path = getenv("PATH");
  std::string teller;  // such as "PROGRAM: "
  int runs = 0;
};

// Runs a distribution server with platform 5 and the system types alpha and beta.
class ServerTest : public ProgramTest {
 protected:
  ServerTest() {
    publish("platform 5", "r1");
    publish("system-type alpha 1.4", "a1");
    publish("system-type beta 0.9", "b1");
    EXPECT_EQ(run("exec local-server.sh start server").status, 0);
  }
  ~ServerTest() override { run("local-server.sh stop server"); }

  static std::string item(const std::string& name) { return "server/www/2/runenv/" + name; }

  // Publishes the directory "content" with a file that names the item and the release.
  void publish(const std::string& item, const std::string& release) {
    write_file("content/file", item + " " + release);
    check("PATH=${PATH#*:}; mkdir -p server/www; runenv-publish --quiet server/www " + item + " " +
          release + " --from content --replace --drop-platforms");
  }
};
