// The outside world at its worst: kills at any moment, servers and disks that fail, and many
// processes at once. What is installed stays whole, and the next run heals the rest.
//
// RUNENV_PROOF_ROUNDS sets how long the two proofs below go on; 1 unless set.
#include <csignal>
#include <map>
#include <random>

#include "tests/program.h"

static int proof_rounds() {
  const char* const rounds = getenv("RUNENV_PROOF_ROUNDS");
  return rounds == nullptr ? 1 : std::atoi(rounds);
}

class FaultTest : public ServerTest {
 protected:
  static constexpr int kFiles = 30;

  // Publishes a version of several files that all name it.
  void publish_files(const std::string& version) {
    const files::path content = directory / "files";
    Words tar{"tar", "-C", content.string(), "-czf", "", "."};
    for (int i = 0; i < kFiles; ++i) {
      write_file(content / std::to_string(i), version + std::string(20000, 'x'));
    }
    const files::path archive = item("platform/5") / version / "linux-x64.tar.gz";
    files::create_directories(archive.parent_path());
    tar[4] = archive.string();
    EXPECT_EQ(run(tar).status, 0);
    write_file(item("platform/5/latest"), version);
  }

  bool is_complete(const std::string& version) {
    for (int i = 0; i < kFiles; ++i) {
      const std::string text = local("platform/5/" + version + "/" + std::to_string(i));
      if (text != version + std::string(20000, 'x')) return false;
    }
    return true;
  }

  Outcome run_script(const std::string& script) { return run({"sh", "-c", script}); }

  static std::string fatal(const std::string& message) {
    return "Fatal error[uncaught exception]: " + message + "\n";
  }
};

TEST_F(FaultTest, KilledAtAnyMomentThePointerNamesACompleteVersion) {
  std::mt19937 random(1);
  run({VERSIONS, "compose", "-o", "versions.bin", "5"});
  const int kills = 40 * proof_rounds();
  int landed = 0;
  for (int i = 0; i < kills; ++i) {
    const std::string newest = "v" + std::to_string(i);
    publish_files(newest);
    if (i % 5 == 0) files::remove_all(machine / "runenv");  // a first install now and then
    // In a group of its own, so that its tools die with it, as at the end of a terminal session.
    using namespace ChildProcess;
    const std::string program = BOOTSTRAP;
    const char* const argv[] = {program.c_str(), "versions.bin", nullptr};
    process_t* const child =
        create_child(argv, {REDIRECT_INHERIT, nullptr}, {REDIRECT_FILE, "/dev/null"},
                     {REDIRECT_FILE, "/dev/null"}, machine.c_str(), true);
    usleep(static_cast<useconds_t>(random() % 25000));
    const int signals[] = {SIGKILL, SIGTERM, SIGINT};
    ::kill(-child->pid, signals[i % 3]);
    landed += wait(child) < 0;
    destroy(child);
    const std::string pointer = local("platform/5/latest");
    ASSERT_TRUE(pointer.empty() || is_complete(pointer)) << pointer << " after kill " << i;
    ASSERT_EQ(run({BOOTSTRAP, "versions.bin"}).status, 0);
    ASSERT_EQ(local("platform/5/latest"), newest);
    ASSERT_TRUE(is_complete(newest));
  }
  std::printf("%d runs, %d of them killed\n", kills, landed);
  EXPECT_GT(landed, kills / 4);
}

TEST_F(FaultTest, ManyProcessesNeverUnpackOneItemAtOnce) {
  const std::string log = directory / "log";
  stand_in("tar", "echo \"begin $5\" >>" + log + "; PATH=" + search_path +
                      " tar \"$@\"; status=$?; sleep 0.02; echo \"end $5\" >>" + log +
                      "; exit $status");
  run({VERSIONS, "compose", "-o", "versions.bin", "5", "alpha=1.4"});
  for (int round = 0; round < proof_rounds(); ++round) {
    std::map<std::string, ChildProcess::process_t*> runs;
    for (int i = 0; i < 16; ++i) {
      const std::string tag = std::to_string(i);
      runs[tag] =
          start({BOOTSTRAP, "--temp-cache", "cache" + tag, "--lock-latest", "versions.bin"}, tag);
      if (i % 4 == 3) publish("platform/5", "n" + std::to_string(round) + "." + tag);
    }
    for (const auto& [tag, child] : runs) {
      const Outcome outcome = finish(child, tag);
      EXPECT_EQ(outcome.status, 0) << outcome.err;
    }
    EXPECT_EQ(run({BOOTSTRAP, "--lock-latest", "versions.bin"}).status, 0);
    EXPECT_EQ(local("platform/5/latest"), "n" + std::to_string(round) + ".15");
  }
  std::ifstream lines(log);
  std::map<std::string, int> unpacking;
  int unpackings = 0;
  for (std::string word, version; lines >> word >> version;) {
    const std::string item = files::path(version).parent_path();
    unpacking[item] += word == "begin" ? 1 : -1;
    EXPECT_LE(unpacking[item], 1) << item;
    unpackings += word == "begin";
  }
  EXPECT_GE(unpackings, 2);
}

TEST_F(FaultTest, FaultyServersAndDisksLeaveTheOldVersion) {
  EXPECT_EQ(bootstrap({}).status, 0);
  const std::string updating = "- 2/runenv/platform/5 [updating]\n";
  const std::string bootstrap_it = std::string("exec ") + BOOTSTRAP + " versions.bin";
  const auto configure = [&](const std::string& server, const std::string& curl) {
    write_file(directory / "server/extra.conf", server);
    run_script("kill -HUP $(cat " + (directory / "server/nginx.pid").string() + "); sleep 0.2");
    std::ofstream(directory / "server/curl/.curlrc", std::ios::app) << curl;
  };
  const std::string slow = "location ~ gz$ { limit_rate 20k; }";
  const std::string stop = std::string(LOCAL_SERVER) + " stop ../server";
  const std::string curlrc = read_file(directory / "server/curl/.curlrc");
  const struct {
    const char* what;
    std::function<void()> arrange;
    std::string script, out, err;  // what tools say for themselves may stand around `err`
  } kRows[] = {
      // Without curl's own `fail` an error page is a file like any other: its first line is taken
      // for a version, the page for its archive, and tar refuses it.
      {"404", [&] { files::remove(item("platform/5/latest")); }, bootstrap_it, updating,
       "tar exit code: 2\n" + fatal("tar command failed")},
      {"500", [&] { configure("location / { return 500; }", ""); }, bootstrap_it, updating,
       "tar exit code: 2\n" + fatal("tar command failed")},
      {"404 and fail", [&] { configure("", "fail\n"), files::remove(item("platform/5/latest")); },
       bootstrap_it, "", "curl exit code: 22\n" + fatal("curl command failed")},
      {"500 and fail", [&] { configure("location ~ gz$ { return 500; }", "fail\n"); }, bootstrap_it,
       updating, "curl exit code: 22\n" + fatal("curl command failed")},
      {"stalled", [&] { configure(slow, "max-time = 1\n"); }, bootstrap_it, updating,
       "curl exit code: 28\n" + fatal("curl command failed")},
      {"cut", [&] { configure(slow, ""); },
       "(sleep 0.5; kill -9 $(pgrep -P $(cat ../server/nginx.pid))) & " + bootstrap_it, updating,
       "curl exit code: 18\n" + fatal("curl command failed")},
      {"no version", [&] { write_file(item("platform/5/latest"), ""); }, bootstrap_it, updating,
       "tar exit code: 2\n" + fatal("tar command failed")},
      {"1 MiB version", [&] { write_file(item("platform/5/latest"), std::string(1 << 20, 'v')); },
       bootstrap_it, updating, fatal("Argument list too long")},
      {"escaping names",
       [&] {
         run_script("cd ../content && tar -P -czf " + (item("platform/5") / "r2").string() +
                    "/linux-x64.tar.gz ../content/file 2>/dev/null");
       },
       bootstrap_it, updating, "tar exit code: 2\n" + fatal("tar command failed")},
      {"full disk", [] {}, "ulimit -f 100; " + bootstrap_it, updating,
       "curl exit code: -25\n" + fatal("curl command failed")},
      {"cache in the way", [&] { write_file(machine / ".update", ""); }, bootstrap_it, "",
       "Failed to set working directory: Not a directory\ncurl exit code: 1\n" +
           fatal("curl command failed")},
      {"not allowed", [&] { chmod(directory.c_str(), 0755), chmod(machine.c_str(), 0755); },
       "exec setpriv --reuid 65534 --clear-groups -- " + bootstrap_it.substr(5), "",
       fatal("Unable to create directory '.update': Permission denied")},
  };
  for (const auto& row : kRows) {
    if (row.script.find("setpriv") != std::string::npos && geteuid() != 0) continue;
    files::remove_all(machine / ".update");
    publish("platform/5", "r2");
    write_file(directory / "content/padding", std::string(200000, 'p'));
    run_script("head -c 200000 /dev/urandom >../content/padding && tar -C ../content -czf " +
               (item("platform/5") / "r2/linux-x64.tar.gz").string() + " .");
    row.arrange();
    const Outcome outcome = run_script(row.script);
    EXPECT_EQ(outcome.status, 1) << row.what;
    EXPECT_EQ(outcome.out, row.out) << row.what;
    EXPECT_NE(outcome.err.find(row.err), std::string::npos) << row.what << ": " << outcome.err;
    EXPECT_EQ(local("platform/5/latest"), "r1") << row.what;
    EXPECT_EQ(local("platform/5/r1/file"), "platform/5 r1") << row.what;
    write_file(directory / "server/curl/.curlrc", curlrc);
    configure("", "");
  }
  // What servers may do as well: redirect, and archive absolute names, which tar makes relative.
  files::remove_all(machine / ".update");
  publish("platform/5", "r3");
  files::rename(item("platform/5/r3"), item("elsewhere"));
  configure(
      "location /2/runenv/platform/5/r3/ { rewrite r3/(.*) /2/runenv/elsewhere/$1 redirect; }", "");
  const std::string file = directory / "content/file";
  run_script("tar -P -czf " + (item("elsewhere") / "linux-x64.tar.gz").string() + " " + file);
  EXPECT_EQ(run_script(bootstrap_it).status, 0);
  EXPECT_EQ(local("platform/5/latest"), "r3");
  EXPECT_EQ(local("platform/5/r3" + file), "platform/5 r3");
  // A file where the environment should be.
  files::remove_all(machine / "runenv");
  write_file(machine / "runenv", "mine");
  EXPECT_EQ(run_script(bootstrap_it).err,
            fatal("Unable to create directory 'runenv/platform/5/r3': component 'runenv' of path "
                  "is not a directory"));
  EXPECT_EQ(read_file(machine / "runenv"), "mine");
}
