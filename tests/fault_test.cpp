// The outside world at its worst: kills at any moment, servers, tools and disks that fail, and many
// processes at once. What is installed stays whole, and the next run heals the rest.
//
// RUNENV_PROOF_ROUNDS sets how long the two proofs below go on; 1 unless set.
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include "tests/program.h"

// There in programs that a sanitizer watches, which takes memory and time itself.
extern "C" [[gnu::weak]] void __asan_init();

static int proof_rounds() {
  const char* const rounds = getenv("RUNENV_PROOF_ROUNDS");
  return rounds == nullptr ? 1 : std::atoi(rounds);
}

class FaultTest : public ServerTest {
 protected:
  FaultTest() {
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // what a program leaves behind belongs to this process then
    run("runenv-versions compose -o versions.bin 5 alpha=1.4 &&"
        " head -c 300000 /dev/urandom | split -b 10000 - content/part");
  }

  // Ends the program, but not its tools, by a signal. Returns how the tools ended that it has not
  // waited for; SIGUSR1 says that one has outlived it.
  static std::vector<int> tools_left(const Run& run, int signal) {
    const pid_t group = run.child->pid;
    kill(group, signal);
    ChildProcess::wait(run.child);
    kill(-group, SIGUSR1);
    kill(-group, SIGCONT);
    std::vector<int> ends;
    for (int status; waitpid(-group, &status, 0) > 0;) ends.push_back(status);
    return ends;
  }

  bool is_complete(const std::string& version) {
    return local("platform/5/" + version + "/file") == "platform/5 " + version &&
           run("diff -rx file content runenv/platform/5/" + version).status == 0;
  }
};

TEST_F(FaultTest, KilledAtAnyMomentItEndsItsToolAndThePointerNamesACompleteVersion) {
  // The first few runs are ended at work: one with curl, one with tar, which are stopped meanwhile.
  const std::string stops = "echo >" + directory + "/begun; kill -STOP $$; exec sleep 1000",
                    slow = "exec /bin/tar --checkpoint=4 --checkpoint-action='exec=sleep 0.02' $*";
  for (int i = 0; i < 8 * proof_rounds(); ++i) {
    const bool at_work = i < 8;
    const int signals[] = {SIGKILL, SIGTERM, SIGINT, SIGHUP}, signal = signals[i % 4];
    const std::string newest = "v" + std::to_string(i);
    publish("platform/5", newest);
    if (i % 5 == 0) files::remove_all("runenv");  // a first install now and then
    stand_in(i < 4 ? "curl" : "tar", at_work ? stops : slow);
    const Run killed = start("exec runenv-bootstrap versions.bin");
    if (at_work) {
      EXPECT_EQ(run("timeout 20 sh -c 'until [ -e begun ]; do sleep 0.01; done'").status, 0);
    } else {
      usleep(static_cast<useconds_t>(random() % 400000));
    }
    const std::vector<int> left = tools_left(killed, signal);  // tar's own tools, too
    const Outcome outcome = finish(killed);
    if (at_work) {
      EXPECT_EQ(left, std::vector(signal == SIGKILL, SIGKILL)) << newest;
      EXPECT_EQ(outcome.status, -signal);
      EXPECT_EQ(outcome.out.empty(), i < 4) << newest;  // standard output is flushed at once
    }
    const std::string pointer = local("platform/5/latest");
    ASSERT_TRUE(pointer.empty() || is_complete(pointer)) << pointer << ", not " << newest;
    run("rm -r bin begun");
    ASSERT_EQ(run("runenv-bootstrap versions.bin").status, 0);
    ASSERT_EQ(local("platform/5/latest"), newest);
    ASSERT_TRUE(is_complete(newest));
  }
  for (const std::string ignored : {"TERM", "INT", "HUP"}) {
    stand_in("curl", "kill -" + ignored + " $PPID; exec /usr/bin/curl $*");
    EXPECT_EQ(run("trap '' " + ignored + "; exec runenv-bootstrap versions.bin").status, 0);
  }
}

TEST_F(FaultTest, ManyProcessesUnpackAVersionOnceAndAnItemOneAtATime) {
  // Fails where that is not so. It takes long enough to be overlapped, and sees its input end.
  stand_in("tar",
           "timeout 9 cat && mkdir $5/once $5/../busy && /bin/tar \"$@\" && sleep 0.02 && "
           "rmdir $5/../busy");
  for (int round = 0; round < proof_rounds(); ++round) {
    std::vector<Run> contenders;
    for (int i = 0; i < 16; ++i) {
      const std::string tag = std::to_string(round) + "." + std::to_string(i);
      contenders.push_back(
          start("exec runenv-bootstrap --temp-cache cache" + tag + " --lock-latest versions.bin"));
      if (i % 4 == 3) publish("platform/5", "n" + tag);
    }
    for (const Run& contender : contenders) {
      const Outcome outcome = finish(contender);
      EXPECT_EQ(outcome.status, 0) << outcome.err;
    }
    EXPECT_EQ(run("runenv-bootstrap --lock-latest versions.bin").status, 0);
    EXPECT_EQ(local("platform/5/latest"), "n" + std::to_string(round) + ".15");
  }
}

// The words of the arrangements below.
static const std::string kWords = R"(
  program=$(command -v runenv-bootstrap)
  item=server/www/2/runenv/platform/5
  stand_in() { printf '#!/bin/sh\n%s\n' "$2" >bin/$1 && chmod +x bin/$1; }
)";

TEST_F(FaultTest, FailuresEndTheRunAndKeepWhatIsInstalled) {
  EXPECT_EQ(bootstrap().status, 0);
  const std::string updating = "- 2/runenv/platform/5 [updating]\n";
  const auto curl_fails = [](const std::string& code) {
    return "curl exit code: " + code + "\n" + fatal("curl command failed");
  };
  const std::string huge = __asan_init == nullptr ? "64M" : "1M";
  const std::string tar_fails = "tar exit code: 2\n" + fatal("tar command failed");
  const struct {
    std::string what, arrangement, out, err;  // what tools say for themselves may stand before
  } kRows[] = {
      {"no curl", "PATH=/nowhere", "", fatal("No such file or directory")},
      {"no pointer", "stand_in curl ''", "", fatal("latest pointer could not be downloaded")},
      {"no archive", "stand_in curl 'case $4 in latest) exec /usr/bin/curl \"$@\";; esac'",
       updating, fatal("archive could not be downloaded")},
      {"failing tar", "stand_in tar 'echo of tar; echo broken >&2; exit 2'", updating + "of tar\n",
       "broken\n" + tar_fails},
      {"distrust", "sed /cacert/d server/curl/.curlrc >.curlrc; CURL_HOME=$PWD", "",
       curl_fails("60")},
      {"no parent", "options='--temp-cache no/cache'", "",
       fatal("Unable to create directory 'no/cache': No such file or directory")},
      // Without curl's own `fail` an error page is a file like any other: its first line is taken
      // for a version, the page for its archive, and tar refuses it.
      {"404", "rm $item/latest", updating, tar_fails},
      {"no version", ": >$item/latest", updating, tar_fails},
      {"huge version", "head -c " + huge + " /dev/zero | tr '\\0' v >$item/latest", updating,
       fatal("Argument list too long")},
      {"escaping names", "tar -C bin -P -czf $item/r2/linux-x64.tar.gz ../content/file", updating,
       tar_fails},
      {"full disk", "ulimit -f 100", updating, curl_fails("-25")},
  };
  for (const auto& row : kRows) {
    run("rm -rf .update bin; mkdir bin");
    publish("platform/5", "r2");
    const Outcome outcome =
        run(kWords + row.arrangement + "\nexec \"$program\" $options versions.bin");
    EXPECT_EQ(outcome.status, 1) << row.what;
    EXPECT_EQ(outcome.out, row.out) << row.what;
    EXPECT_TRUE(("\n" + outcome.err).ends_with("\n" + row.err)) << row.what << ": " << outcome.err;
    EXPECT_EQ(local("platform/5/latest"), "r1") << row.what;
    EXPECT_EQ(local("platform/5/r1/file"), "platform/5 r1") << row.what;
  }
  rusage most;  // of all programs: the bootstrapper holds a version once
  getrusage(RUSAGE_CHILDREN, &most);
  EXPECT_TRUE(most.ru_maxrss < 96 << 10 || __asan_init != nullptr) << most.ru_maxrss << " KiB";
  // A disk that is full when nothing is left to do but to write the pointer; the pipe has room.
  write_file("version", std::string(1000, '/'));  // the first 512 bytes get there
  stand_in("curl", "ln -s ../version \"$4\"");
  stand_in("tar", "");
  EXPECT_EQ(run("rm -rf .update; (ulimit -f 1; trap '' XFSZ; runenv-bootstrap versions.bin) 2>&1 |"
                " cat")
                .out,
            updating + fatal("latest file could not be written"));
  EXPECT_EQ(local("platform/5/latest"), "");
  // The next run gets over what was left behind. Servers may redirect, too.
  files::remove_all("bin");
  publish("platform/5", "r3");
  write_file("server/extra.conf", "rewrite 5/(r3/.*) /2/runenv/platform/$1 redirect;");
  run("mv " + item("platform/5/r3 ") + item("platform") + "; exec local-server.sh start server");
  EXPECT_EQ(run("runenv-bootstrap versions.bin").status, 0);
  EXPECT_EQ(local("platform/5/latest"), "r3");
  EXPECT_EQ(local("platform/5/r3/file"), "platform/5 r3");
  // A pointer that fails to be read, as from a broken disk, or to be locked.
  run("ln -sf /proc/self/mem runenv/platform/5/latest");
  EXPECT_EQ(bootstrap().err, fatal("Unable to open 'runenv/platform/5/latest' for reading: "
                                   "Input/output error"));
  run("rm runenv/platform/5/latest; mkdir runenv/platform/5/latest");
  EXPECT_EQ(bootstrap("--lock-latest").err, fatal("latest file could not be opened"));
}
