// Failures from outside: kills, failing servers, tools and disks, and many processes at once.
// Installed releases stay complete, and the next run repairs the rest.
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <vector>

#include "tests/program.h"

// Defined only under AddressSanitizer, which needs more memory and time.
extern "C" [[gnu::weak]] void __asan_init();

class FaultTest : public ServerTest {
 protected:
  FaultTest() {
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // to adopt and wait for tools that outlive their program
    run("runenv-versions compose -o versions.bin 5 alpha=1.4 &&"
        " head -c 300000 /dev/urandom | split -b 10000 - content/part");
  }
  bool is_complete(const std::string& version) {
    return local("platform/5/" + version + "/file") == "platform 5 " + version &&
           run("diff -rx file content runenv/platform/5/" + version).status == 0;
  }
};

TEST_F(FaultTest, AKilledRunEndsItsToolAndThePointerNamesACompleteRelease) {
  std::string installed;  // by the run before
  // The run is killed while it waits for this tool, which has stopped itself; with "none", anytime.
  for (const std::string tool : {"curl", "tar", "none"}) {
    for (const int signal : {SIGKILL, SIGTERM, SIGINT, SIGHUP}) {
      const std::string newest = tool + std::to_string(signal);
      publish("platform 5", newest);
      stand_in(tool, "echo >" + directory + "/begun; kill -STOP $$; exec sleep 1000");
      const Run killed = start("exec runenv-bootstrap versions.bin");
      const pid_t group = killed.child->pid;
      const bool at_work = tool != "none";
      if (at_work) {
        run("timeout 60 sh -c 'until [ -e begun ]; do sleep 0.01; done'");
      } else {
        usleep(static_cast<useconds_t>(random() % 50000));
      }
      kill(group, signal);
      const Outcome outcome = finish(killed);
      // A tool that is still alive gets SIGUSR1. All others were killed.
      kill(-group, SIGUSR1);
      kill(-group, SIGCONT);
      std::vector<int> ends;
      for (int status; waitpid(-group, &status, 0) > 0;) ends.push_back(status);
      if (at_work) {
        EXPECT_EQ(outcome.status, -signal);
        EXPECT_EQ(outcome.out.empty(), tool == "curl") << newest;  // output is flushed at once
        EXPECT_EQ(ends, std::vector(signal == SIGKILL, SIGKILL)) << newest;
      }
      const std::string pointer = local("platform/5/latest");
      EXPECT_TRUE(pointer == installed || (!at_work && pointer == newest)) << pointer;
      EXPECT_TRUE(pointer.empty() || is_complete(pointer)) << pointer;
      run("rm -r bin begun");
      EXPECT_EQ(run("runenv-bootstrap versions.bin").status, 0);
      installed = local("platform/5/latest");
      EXPECT_TRUE(installed == newest && is_complete(newest)) << installed << ", not " << newest;
    }
  }
  for (const std::string ignored : {"TERM", "INT", "HUP"}) {
    stand_in("curl", "kill -" + ignored + " $PPID; exec /usr/bin/curl $*");
    EXPECT_EQ(run("trap '' " + ignored + "; exec runenv-bootstrap versions.bin").status, 0);
  }
}

TEST_F(FaultTest, ProcessesUnpackAReleaseOnceAndAnItemOneAtATime) {
  // This tar fails if another one is unpacking the item or has unpacked the release, or if its
  // input does not end. It takes long enough for runs to overlap.
  stand_in("tar",
           "timeout 60 cat && mkdir $5/once $5/../busy && /bin/tar \"$@\" && sleep 0.02 && "
           "rmdir $5/../busy");
  std::vector<Run> contenders;
  for (int i = 0; i < 16; ++i) {
    contenders.push_back(start("exec runenv-bootstrap --temp-cache cache" + std::to_string(i) +
                               " --lock-latest versions.bin"));
    if (i % 4 == 3) publish("platform 5", "n" + std::to_string(i));
  }
  for (const Run& contender : contenders) EXPECT_EQ(finish(contender).status, 0);
  EXPECT_EQ(run("runenv-bootstrap --lock-latest versions.bin").status, 0);
  EXPECT_EQ(local("platform/5/latest"), "n15");
}

TEST_F(FaultTest, FailuresEndTheRunAndKeepWhatIsInstalled) {
  const std::string updating = "- 2/runenv/platform/5 [updating]\n",
                    fatal = "Fatal error[uncaught exception]: ",
                    curl_fails = "\n" + fatal + "curl command failed",
                    tar_fails = "tar exit code: 2\n" + fatal + "tar command failed",
                    huge = __asan_init == nullptr ? "64M" : "1M",
                    // Definitions for the commands below.
      begin =
          "program=$(command -v runenv-bootstrap); item=server/www/2/runenv/platform/5; "
          "stand_in() { printf '#!/bin/sh\\n%s\\n' \"$2\" >bin/$1 && chmod +x bin/$1; }; ";
  EXPECT_EQ(bootstrap().status, 0);
  const Row kRows[] = {
      {"PATH=/nowhere", "", fatal + "No such file or directory"},
      {"stand_in curl ''", "", fatal + "latest pointer could not be downloaded"},
      {"stand_in curl 'case $4 in latest) exec /usr/bin/curl \"$@\";; esac'", updating,
       fatal + "archive could not be downloaded"},
      {"stand_in tar 'echo of tar; echo broken >&2; exit 2'", updating + "of tar\n",
       "broken\n" + tar_fails},
      {"sed /cacert/d server/curl/.curlrc >.curlrc; CURL_HOME=$PWD", "",
       "curl exit code: 60" + curl_fails},
      {"options='--temp-cache no/cache'", "",
       fatal + "Unable to create directory 'no/cache': No such file or directory"},
      // Without curl's `fail`, error pages are taken for the pointer and the archive, and tar
      // rejects the archive.
      {"rm $item/latest", updating, tar_fails},
      {": >$item/latest", updating, tar_fails},
      {"head -c " + huge + " /dev/zero | tr '\\0' v >$item/latest", updating,
       fatal + "Argument list too long"},
      // An archive with names that lead out of the directory.
      {"tar -C bin -P -czf $item/r2/linux-x64.tar.gz ../content/file", updating, tar_fails},
      {"ulimit -f 100", updating, "curl exit code: -25" + curl_fails},
  };
  for (const Row& row : kRows) {
    run("rm -rf .update bin " + item("platform/5/latest") + "; mkdir bin");
    publish("platform 5", "r2");
    check(begin + row.command + "\nexec \"$program\" $options versions.bin", row.out, row.error,
          true);
    EXPECT_EQ(local("platform/5/latest"), "r1") << row.command;
    EXPECT_EQ(local("platform/5/r1/file"), "platform 5 r1") << row.command;
  }
  rusage most;  // of any program: the bootstrapper keeps a name only once
  getrusage(RUSAGE_CHILDREN, &most);
  EXPECT_TRUE(most.ru_maxrss < 96 << 10 || __asan_init != nullptr) << most.ru_maxrss << " KiB";
  // The disk is full when the pointer is written. The output goes to a pipe, which has room.
  write_file("version", std::string(1000, '/'));  // only 512 bytes can be written
  stand_in("curl", "ln -s ../version \"$4\"");
  stand_in("tar", "");
  check("rm -rf .update; (ulimit -f 1; trap '' XFSZ; runenv-bootstrap versions.bin) 2>&1 | cat",
        updating + fatal + "latest file could not be written\n");
  EXPECT_EQ(local("platform/5/latest"), "");
  // The next run works in spite of the remains. Servers may redirect, too.
  files::remove_all("bin");
  publish("platform 5", "r3");
  write_file("server/extra.conf", "rewrite 5/(r3/.*) /2/runenv/platform/$1 redirect;");
  check(
      "mv " + item("platform/5/r3 ") + item("platform") +
          "; local-server.sh start server;"
          " runenv-bootstrap versions.bin; cat runenv/platform/5/latest runenv/platform/5/r3/file",
      updating + "r3platform 5 r3");
  // A pointer that cannot be read, as on a broken disk, or cannot be locked.
  check("ln -sf /proc/self/mem runenv/platform/5/latest; runenv-bootstrap versions.bin", "",
        fatal + "Unable to open 'runenv/platform/5/latest' for reading: Input/output error");
  check(
      "rm runenv/platform/5/latest; mkdir runenv/platform/5/latest;"
      " runenv-bootstrap --lock-latest versions.bin",
      "", fatal + "latest file could not be opened");
}
