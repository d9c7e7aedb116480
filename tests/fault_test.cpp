// The outside world at its worst: kills at any moment, servers, tools and disks that fail, and many
// processes at once. What is installed stays whole, and the next run heals the rest.
//
// RUNENV_PROOF_ROUNDS sets how long the two proofs below go on; 1 unless set.
#include <sys/prctl.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <map>
#include <random>
#include <thread>
#include <vector>

#include "tests/program.h"

static int proof_rounds() {
  const char* const rounds = getenv("RUNENV_PROOF_ROUNDS");
  return rounds == nullptr ? 1 : std::atoi(rounds);
}

class FaultTest : public ServerTest {
 protected:
  FaultTest() {
    run("runenv-versions compose -o versions.bin 5 alpha=1.4 &&"
        " head -c 300000 /dev/urandom | split -b 10000 - content/part");
  }

  bool is_complete(const std::string& version) {
    return local("platform/5/" + version + "/file") == "platform/5 " + version &&
           run("diff -rx file content runenv/platform/5/" + version).status == 0;
  }
};

// Signals go to the bootstrapper alone. What it has started belongs to this process then, which
// waits for all of it: nothing of a run is at work when the next one begins.
static void expect_no_tool_left(pid_t group) {
  alarm(20);  // a tool that stays would have the wait go on for ever
  while (waitpid(-group, nullptr, 0) > 0) {
  }
  alarm(0);
}

TEST_F(FaultTest, KilledAtAnyMomentThePointerNamesACompleteVersion) {
  using Clock = std::chrono::steady_clock;
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  const std::string slow_tar = "exec /bin/tar --checkpoint=4 --checkpoint-action='exec=sleep 0.02'";
  write_file("server/extra.conf", "location ~ gz$ { limit_rate 2m; }");
  run("kill -HUP $(cat server/nginx.pid)");
  stand_in("tar", slow_tar + " \"$@\"");
  std::mt19937 random(1);
  const auto begin = Clock::now();
  run("runenv-bootstrap versions.bin");
  const std::chrono::duration<double> whole_run = Clock::now() - begin;
  const int kills = 8 * proof_rounds();
  int landed = 0;
  for (int i = 0; i < kills; ++i) {
    const std::string newest = "v" + std::to_string(i);
    publish("platform/5", newest);
    if (i % 5 == 0) files::remove_all("runenv");  // a first install now and then
    stand_in("tar", slow_tar + " \"$@\"");
    const Run killed = start("exec runenv-bootstrap versions.bin");
    std::this_thread::sleep_for(whole_run * (random() % 100) / 100);
    const int signals[] = {SIGKILL, SIGTERM, SIGINT, SIGHUP};
    kill(killed.child->pid, signals[i % 4]);
    const pid_t group = killed.child->pid;
    landed += finish(killed).status < 0;
    const std::string pointer = local("platform/5/latest");
    ASSERT_TRUE(pointer.empty() || is_complete(pointer)) << pointer << " after kill " << i;
    files::remove("bin/tar");
    ASSERT_EQ(run("runenv-bootstrap versions.bin").status, 0);
    ASSERT_EQ(local("platform/5/latest"), newest);
    ASSERT_TRUE(is_complete(newest));
    expect_no_tool_left(group);
  }
  std::printf("%d runs, %d of them killed\n", kills, landed);
  EXPECT_GE(landed, kills / 4);
}

TEST_F(FaultTest, AToolEndsWithTheProgram) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  for (const std::string tool : {"curl", "tar"}) {
    // One that is stopped ends, too.
    stand_in(tool, "echo >../begun; echo >begun; kill -STOP $$; exec sleep 1000");
    for (const int signal : {SIGKILL, SIGTERM, SIGINT, SIGHUP}) {
      run("rm -rf runenv begun .update");
      const Run killed = start("exec runenv-bootstrap versions.bin");
      while (!files::exists("begun")) usleep(1000);
      const pid_t group = killed.child->pid;
      kill(group, signal);
      EXPECT_EQ(finish(killed).status, -signal);
      const bool waited_for = waitpid(-group, nullptr, WNOHANG) == -1;
      EXPECT_TRUE(waited_for || signal == SIGKILL) << tool << " after signal " << signal;
      expect_no_tool_left(group);
    }
    files::remove("bin/" + tool);
  }
}

TEST_F(FaultTest, ManyProcessesUnpackAVersionOnceAndAnItemOneAtATime) {
  // Every unpacking sees the end of its input, notes its begin and its end, and takes long enough
  // to be overlapped.
  stand_in("tar", "timeout 2 cat || exit; echo \"begin $5\" >>log; PATH=" + search_path +
                      " tar \"$@\"; status=$?; sleep 0.02; echo \"end $5\" >>log; exit $status");
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
  std::ifstream lines("log");
  std::map<std::string, int> at_work, unpacked;
  for (std::string word, version; lines >> word >> version;) {
    const std::string item = files::path(version).parent_path();
    at_work[item] += word == "begin" ? 1 : -1;
    EXPECT_LE(at_work[item], 1) << item;
    unpacked[version] += word == "begin";
  }
  EXPECT_GE(unpacked.size(), 2U);
  for (const auto& [version, times] : unpacked) EXPECT_EQ(times, 1) << version;
}

// The words of the arrangements below.
static const std::string kWords = R"(
  program=$(command -v runenv-bootstrap)
  item=server/www/2/runenv/platform/5
  archive=$item/r2/linux-x64.tar.gz
  stand_in() { printf '#!/bin/sh\n%s\n' "$2" >bin/$1 && chmod +x bin/$1; }
  curlrc() { mkdir -p curl; sed "$1" server/curl/.curlrc >curl/.curlrc; CURL_HOME=$PWD/curl; }
  serve() { printf %s "$1" >server/extra.conf; kill -HUP $(cat server/nginx.pid); sleep 0.2; }
)";

TEST_F(FaultTest, FailuresEndTheRunAndKeepWhatIsInstalled) {
  EXPECT_EQ(bootstrap().status, 0);
  const std::string updating = "- 2/runenv/platform/5 [updating]\n";
  const auto curl_fails = [](const std::string& code) {
    return "curl exit code: " + code + "\n" + fatal("curl command failed");
  };
  const std::string tar_fails = "tar exit code: 2\n" + fatal("tar command failed");
  const struct {
    std::string what, arrangement, out, err;  // what tools say for themselves may stand before
  } kRows[] = {
      {"no curl", "PATH=/nowhere", "", fatal("No such file or directory")},
      {"killed curl", "stand_in curl 'kill -9 $$'", "", curl_fails("-9")},
      {"no pointer", "stand_in curl ''", "", fatal("latest pointer could not be downloaded")},
      {"no archive", "stand_in curl 'case $4 in latest) exec /usr/bin/curl \"$@\";; esac'",
       updating, fatal("archive could not be downloaded")},
      {"failing tar", "stand_in tar 'echo of tar; echo broken >&2; exit 2'", updating + "of tar\n",
       "broken\n" + tar_fails},
      {"distrust", "curlrc /cacert/d", "", curl_fails("60")},
      {"no parent", "options='--temp-cache no/cache'", "",
       fatal("Unable to create directory 'no/cache': No such file or directory")},
      {"no name", "options=\"--temp-cache ''\"", "",
       fatal("Unable to create directory '': No such file or directory")},
      {"not allowed",
       "mkdir locked; chmod 555 locked; chmod 755 .; options='--temp-cache locked/cache'\n"
       "[ $(id -u) -ne 0 ] || as='setpriv --reuid 65534 --clear-groups --'",
       "", fatal("Unable to create directory 'locked/cache': Permission denied")},
      // Without curl's own `fail` an error page is a file like any other: its first line is taken
      // for a version, the page for its archive, and tar refuses it.
      {"404", "rm $item/latest", updating, tar_fails},
      {"404 and fail", "rm $item/latest; curlrc '$a fail'", "", curl_fails("22")},
      {"500 and fail", "serve 'location ~ gz$ { return 500; }'; curlrc '$a fail'", updating,
       curl_fails("22")},
      {"stalled", "serve 'location ~ gz$ { limit_rate 20k; }'; curlrc '$a max-time = 1'", updating,
       curl_fails("28")},
      {"cut",
       "serve 'location ~ gz$ { limit_rate 20k; }';"
       "(sleep 0.5; kill -9 $(pgrep -P $(cat server/nginx.pid))) &",
       updating, curl_fails("18")},
      {"no version", ": >$item/latest", updating, tar_fails},
      {"1 MiB version", "head -c 1048576 /dev/zero | tr '\\0' v >$item/latest", updating,
       fatal("Argument list too long")},
      {"escaping names", "tar -C bin -P -czf $archive ../content/file", updating, tar_fails},
      {"full disk", "ulimit -f 100", updating, curl_fails("-25")},
      {"cache in the way", ": >.update", "",
       "Failed to set working directory: Not a directory\n" + curl_fails("1")},
  };
  for (const auto& row : kRows) {
    run(kWords + "rm -rf .update bin; mkdir bin; [ ! -s server/extra.conf ] || serve ''");
    publish("platform/5", "r2");
    const Outcome outcome =
        run(kWords + row.arrangement + "\neval \"exec $as '$program' $options versions.bin\"");
    EXPECT_EQ(outcome.status, 1) << row.what;
    EXPECT_EQ(outcome.out, row.out) << row.what;
    EXPECT_TRUE(outcome.err.ends_with(row.err)) << row.what << ": " << outcome.err;
    EXPECT_EQ(local("platform/5/latest"), "r1") << row.what;
    EXPECT_EQ(local("platform/5/r1/file"), "platform/5 r1") << row.what;
  }
  // A disk that is full when nothing is left to do but to write the pointer; the pipe has room.
  const std::string part = std::string(200, 'r') + "/";
  write_file("version", part + part + part + part + part + part);  // the first 512 bytes get there
  stand_in("curl", "ln -s ../version \"$4\"");
  stand_in("tar", "");
  const std::string limited =
      "(ulimit -f 1; trap '' XFSZ; runenv-bootstrap versions.bin) 2>&1 | cat";
  EXPECT_EQ(run("rm -rf .update; " + limited).out,
            updating + fatal("latest file could not be written"));
  EXPECT_EQ(local("platform/5/latest"), "");
  // The next run gets over what was left behind. Servers may redirect, too, and archives may hold
  // absolute names, which tar makes relative.
  files::remove_all("bin");
  publish("platform/5", "r3");
  run(kWords + "tar -P -czf $item/r3/linux-x64.tar.gz $PWD/content/file; mv $item/r3 $item/../r3;" +
      "serve 'rewrite 5/(r3/.*) /2/runenv/platform/$1 redirect;'");
  EXPECT_EQ(run("runenv-bootstrap versions.bin").status, 0);
  EXPECT_EQ(local("platform/5/latest"), "r3");
  EXPECT_EQ(local("platform/5/r3" + directory + "/content/file"), "platform/5 r3");
  // A pointer that fails to be read, as from a broken disk.
  run("ln -sf /proc/self/mem runenv/platform/5/latest");
  EXPECT_EQ(bootstrap().err, fatal("Unable to open 'runenv/platform/5/latest' for reading: "
                                   "Input/output error"));
  // Something of the user's where a lock, or the environment, should be.
  run("rm runenv/platform/5/latest; mkdir runenv/platform/5/latest");
  EXPECT_EQ(bootstrap("--lock-latest").err, fatal("latest file could not be opened"));
  files::remove_all("runenv");
  write_file("runenv", "mine");
  EXPECT_EQ(bootstrap().err, fatal("Unable to create directory 'runenv/platform/5/r3': component "
                                   "'runenv' of path is not a directory"));
  EXPECT_EQ(read_file("runenv"), "mine");
}
