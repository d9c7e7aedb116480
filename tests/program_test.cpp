// The programs as a user runs them: against a real web server with TLS, the real curl and tar, and
// a stand-in on the search path only for what those cannot be made to do.
#include "tests/program.h"

#include <linux/close_range.h>

#include <set>

#include "schema/update.h"

static const std::string kUsage =
    "\x1b[1musage:\x1b[0m  [--target 'platform'] [--temp-cache 'directory'] [--skip-platform] "
    "[--lock-latest] 'version info'\n"
    "   --target              -> \x1b[1moption\x1b[0m bootstrap specific platform\n"
    "      platform           -> \x1b[1mtext\x1b[0m platform name\n"
    "   --temp-cache          -> \x1b[1moption\x1b[0m flag to control storage location\n"
    "      directory          -> \x1b[1mdirectory-path\x1b[0m directory to store downloaded files "
    "in, it is removed if empty on success\n"
    "   --skip-platform       -> \x1b[1moption\x1b[0m flag to skip platform download\n"
    "   --lock-latest         -> \x1b[1moption\x1b[0m flag to control locking behavior\n"
    "   version info          -> \x1b[1mfile-path\x1b[0m binary version info\n";

TEST_F(ProgramTest, MalformedCommandLinesArePointedAt) {
  const std::string no_path =
      "path 'version info' requires an argument, but no argument is available";
  const std::string no_platform =
      "text 'platform' requires an argument, but no argument is available";
  const std::string no_directory =
      "path 'directory' requires an argument, but no argument is available";
  const std::string superfluous = "superfluous command line argument(s)";
  const struct {
    Words words;
    std::string message;
    size_t index;  // of the argument that the caret stands under
  } kRows[] = {
      {{}, no_path, 1},
      {{"--target"}, no_platform, 2},
      {{"--target", "p"}, no_path, 3},
      {{"--temp-cache"}, no_directory, 2},
      {{"--target", "p", "--temp-cache"}, no_directory, 4},
      {{"--skip-platform", "--lock-latest"}, no_path, 3},
      {{"one", "two"}, superfluous, 2},
      {{"--help", "more"}, superfluous, 2},
      {{"--lock-latest", "--target", "p", "f"}, superfluous, 3},
      {{"--skip-platform", "--temp-cache", "d", "f"}, superfluous, 3},
      {{"--temp-cache", "d", "--target", "p", "f"}, superfluous, 4},
      {{"--lock-latest", "--skip-platform", "f"}, superfluous, 3},
  };
  for (const auto& row : kRows) {
    Words words = row.words;
    words.insert(words.begin(), BOOTSTRAP);
    std::string line, caret = " ";
    for (size_t i = 0; i < words.size(); ++i) {
      line += " " + words[i];
      if (i < row.index) caret.append(words[i].size() + 1, ' ');
    }
    const Outcome outcome = run(words);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "unable to parse arguments: " + row.message + "\n\n" + line + "\n" +
                               caret + "^\n\n" + kUsage);
  }
  const Outcome help = run({BOOTSTRAP, "--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.err, kUsage);
}

TEST_F(ProgramTest, ParserRefusesAnEmptyVector) {
  image___update___root_t root{};
  EXPECT_EXIT(image___update___do_parse(0, nullptr, &root), testing::ExitedWithCode(1),
              "^unable to parse arguments: no arguments provided to parse\n$");
}

TEST_F(ProgramTest, DocumentsThatCannotBeLoadedEndTheRunBeforeAnything) {
  run({VERSIONS, "compose", "-o", "good.bin", "5"});
  const std::string good = read_file(machine / "good.bin");
  write_file(machine / "short.bin", good.substr(0, 63));
  write_file(machine / "long.bin", good + "x");
  files::create_directory(machine / "folder");
  const struct {
    const char *file, *message;
  } kRows[] = {
      {"missing.bin", "Unable to open versions 'missing.bin'\n"},
      {"short.bin", "Unable to parse versions: insufficient bytes to read fingerprint\n"},
      {"long.bin", "Unable to parse versions: trailing bytes\n"},
      {"folder", "Unable to parse versions: insufficient bytes to read fingerprint\n"},
  };
  for (const auto& row : kRows) {
    const Outcome outcome = run({BOOTSTRAP, row.file});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, row.message);
    EXPECT_FALSE(files::exists(machine / ".update"));
  }
}

TEST_F(ProgramTest, DocumentToolWritesAndPrints) {
  const std::string listing = "2.0\nalpha=1.4\nbeta=0=9\nempty=\n";
  EXPECT_EQ(run({VERSIONS, "compose", "2.0", "beta=0=9", "empty=", "alpha=1.4", "-o", "v"}).status,
            0);
  EXPECT_EQ(run({VERSIONS, "show", "v"}).out, listing);
  write_file(machine / "bad", read_file(machine / "v") + "x");
  const struct {
    Words words;
    std::string err;
  } kFailures[] = {
      {{"show", "bad"}, "runenv-versions: bad: trailing bytes\n"},
      {{"show", "no"}, "runenv-versions: no: No such file or directory\n"},
      {{"compose", "1", "a=1", "b=2", "a=3", "-o", "v"},
       "runenv-versions: system type 'a' is given twice\n"},
      {{"compose", "1", "-o", "/dev/full"},
       "runenv-versions: /dev/full: No space left on device\n"},
      {{"compose", "1", "-o", "no/v"}, "runenv-versions: no/v: No such file or directory\n"},
      {{"compose"},
       "runenv-versions: compose needs a platform version\n"
       "Try 'runenv-versions --help'.\n"},
      {{"compose", "1", "a"},
       "runenv-versions: system type 'a' is not of the form NAME=VERSION\n"
       "Try 'runenv-versions --help'.\n"},
      {{"compose", "1", "=1"},
       "runenv-versions: system type '=1' has no name\n"
       "Try 'runenv-versions --help'.\n"},
      {{"compose", "-x"},
       "runenv-versions: unknown option '-x'\n"
       "Try 'runenv-versions --help'.\n"},
  };
  for (const auto& row : kFailures) {
    Words words = row.words;
    words.insert(words.begin(), VERSIONS);
    const Outcome outcome = run(words);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, row.err);
  }
  EXPECT_EQ(run({"sh", "-c", VERSIONS " compose 1 >/dev/full"}).status, 1);
  EXPECT_EQ(run({VERSIONS, "show", "v"}).out, listing);  // untouched by what failed
  EXPECT_EQ(std::distance(files::directory_iterator(machine), {}), 2);
  for (const Words& words : {Words{"--help"}, {"compose", "--help"}, {"show", "--help"}}) {
    Words command = words;
    command.insert(command.begin(), VERSIONS);
    EXPECT_EQ(run(command).out.substr(0, 30), "usage: runenv-versions compose");
  }
}

TEST_F(ServerTest, InstallsOnceAndThenOnlyWhatHasChanged) {
  Outcome outcome = bootstrap({}, both);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out,
            "- 2/runenv/platform/5\n- 2/runenv/system-types/alpha/1.4\n"
            "- 2/runenv/system-types/beta/0.9\n");
  EXPECT_EQ(local("platform/5/latest"), "r1");
  EXPECT_EQ(local("platform/5/r1/file"), "platform/5 r1");
  EXPECT_EQ(local("system-types/alpha/1.4/a1/file"), "system-types/alpha/1.4 a1");
  EXPECT_FALSE(files::exists(machine / ".update"));

  outcome = bootstrap({}, both);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out + outcome.err, "");
  EXPECT_FALSE(files::exists(machine / ".update"));

  publish("system-types/beta/0.9", "b2");
  write_file(machine / "cache/other", "");
  outcome = bootstrap({"--temp-cache", "cache"}, both);
  EXPECT_EQ(outcome.out, "- 2/runenv/system-types/beta/0.9 [updating]\n");
  EXPECT_EQ(local("system-types/beta/0.9/latest"), "b2");
  EXPECT_EQ(local("system-types/beta/0.9/b2/file"), "system-types/beta/0.9 b2");
  EXPECT_EQ(local("system-types/beta/0.9/b1/file"), "system-types/beta/0.9 b1");  // kept
  EXPECT_EQ(std::distance(files::directory_iterator(machine / "cache"), {}), 1);
}

TEST_F(ServerTest, OptionsChangeWhatIsInstalled) {
  Outcome outcome = bootstrap({"--skip-platform"}, {"alpha=1.4"});
  EXPECT_EQ(outcome.out, "- 2/runenv/system-types/alpha/1.4\n");
  EXPECT_EQ(bootstrap({"--skip-platform"}).out, "");
  publish("platform/5", "r2", "other");
  outcome = bootstrap({"--target", "other", "--lock-latest"});
  EXPECT_EQ(outcome.out, "- 2/runenv/platform/5 [updating]\n");  // the lock made an empty pointer
  EXPECT_EQ(local("platform/5/latest"), "r2");
  EXPECT_EQ(local("platform/5/r2/file"), "platform/5 r2");
  EXPECT_EQ(bootstrap({"--target", "other", "--lock-latest"}).out, "");
}

TEST_F(ServerTest, PointersAreComparedByTheirFirstLine) {
  write_file(machine / "runenv/platform/5/latest", "r1");
  write_file(item("platform/5/latest"), "r1\r\nignored\n");
  EXPECT_EQ(bootstrap({}).out, "");
  write_file(machine / "runenv/platform/5/latest", "");
  write_file(item("platform/5/latest"), std::string("\0r1", 3));
  EXPECT_EQ(bootstrap({}).out, "");
  EXPECT_EQ(bootstrap({}).status, 0);
}

TEST_F(ServerTest, FailuresEndTheRunAndKeepWhatIsInstalled) {
  EXPECT_EQ(bootstrap({}).status, 0);
  publish("platform/5", "r2");
  const std::string updating = "- 2/runenv/platform/5 [updating]\n";
  const auto fatal = [](const std::string& message) {
    return "Fatal error[uncaught exception]: " + message + "\n";
  };
  const std::string real_curl = "exec /usr/bin/curl \"$@\"";
  const struct {
    std::function<void()> arrange;
    Words options;
    std::string out, err;  // what tools say for themselves may stand before `err`
  } kRows[] = {
      {[&] { stand_in("curl", "kill -9 $$"); },
       {},
       "",
       "curl exit code: -9\n" + fatal("curl command failed")},
      {[&] { stand_in("curl", "exit 0"); },
       {},
       "",
       fatal("latest pointer could not be downloaded")},
      {[&] { stand_in("curl", "case $4 in latest) " + real_curl + ";; esac"); },
       {},
       updating,
       fatal("archive could not be downloaded")},
      {[&] { stand_in("tar", "echo broken >&2; exit 2"); },
       {},
       updating,
       "broken\ntar exit code: 2\n" + fatal("tar command failed")},
      {[&] { setenv("CURL_HOME", "/nowhere", 1); },
       {},
       "",
       "curl exit code: 7\n" + fatal("curl command failed")},
      {[&] {
         const auto curlrc = read_file(directory / "server/curl/.curlrc");
         write_file(directory / "distrust/.curlrc", curlrc.substr(0, curlrc.find("cacert")));
         setenv("CURL_HOME", (directory / "distrust").c_str(), 1);
       },
       {},
       "",
       "curl exit code: 60\n" + fatal("curl command failed")},
      {[&] { setenv("PATH", "/nowhere", 1); }, {}, "", fatal("No such file or directory")},
      {[] {},
       {"--temp-cache", "no/cache"},
       "",
       fatal("Unable to create directory 'no/cache': No such file or directory")},
      {[] {},
       {"--temp-cache", ""},
       "",
       fatal("Unable to create directory '': No such file or directory")},
      {[&] { write_file(item("platform/5/r2/linux-x64.tar.gz"), "no archive"); },
       {},
       updating,
       "tar exit code: 2\n" + fatal("tar command failed")},
  };
  for (const auto& row : kRows) {
    row.arrange();
    const std::string path = getenv("PATH");
    Words command{BOOTSTRAP};
    command.insert(command.end(), row.options.begin(), row.options.end());
    command.push_back("versions.bin");
    const Outcome outcome = run(command);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, row.out);
    EXPECT_TRUE(outcome.err.ends_with(row.err)) << outcome.err << "instead of " << row.err;
    EXPECT_EQ(local("platform/5/latest"), "r1");
    EXPECT_EQ(local("platform/5/r1/file"), "platform/5 r1");
    files::remove_all(directory / "bin");
    setenv("PATH", search_path.c_str(), 1);
    setenv("CURL_HOME", (directory / "server/curl").c_str(), 1);
  }
  publish("platform/5", "r2");  // whatever was left behind does not stand in the way
  EXPECT_EQ(bootstrap({}).status, 0);
  EXPECT_EQ(local("platform/5/latest"), "r2");
  files::remove(machine / "runenv/platform/5/latest");
  files::create_directory(machine / "runenv/platform/5/latest");
  EXPECT_EQ(bootstrap({"--lock-latest"}).err, fatal("latest file could not be opened"));
}

TEST_F(ServerTest, LockedRunsTakeTurns) {
  // Every unpacking notes its begin and its end, and takes long enough to be overlapped.
  stand_in("tar", "echo begin >>" + (directory / "log").string() + "; sleep 0.3; PATH=" +
                      search_path + " tar \"$@\"; echo end >>" + (directory / "log").string());
  run({VERSIONS, "compose", "-o", "versions.bin", "5"});
  std::vector<ChildProcess::process_t*> runs;
  for (const std::string tag : {"1", "2", "3"}) {
    runs.push_back(
        start({BOOTSTRAP, "--temp-cache", "cache" + tag, "--lock-latest", "versions.bin"}, tag));
  }
  std::multiset<std::string> outputs;
  for (size_t i = 0; i < runs.size(); ++i) {
    const Outcome outcome = finish(runs[i], std::to_string(i + 1));
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    outputs.insert(outcome.out);
  }
  EXPECT_EQ(outputs, (std::multiset<std::string>{"", "", "- 2/runenv/platform/5 [updating]\n"}));
  EXPECT_EQ(read_file(directory / "log"), "begin\nend\n");
}

TEST_F(ServerTest, OnlyTheLocksStayOpen) {
  // The tools get their three channels and nothing else; the program holds on to what it locked.
  close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);  // what we were started with ourselves
  Words types;
  for (int i = 0; i < 20; ++i) {
    const std::string name = "type" + std::to_string(i);
    publish("system-types/" + name + "/1", "x");
    types.push_back(name + "=1");
  }
  EXPECT_EQ(bootstrap({}, types).status, 0);
  const std::string log = directory / "log";
  stand_in("curl", "ls /proc/self/fd >" + log + "; ls /proc/$PPID/fd | wc -l >>" + log +
                       "; exec /usr/bin/curl \"$@\"");
  // 3 channels, the two pipes to curl, the status pipe's end until exec is known to have worked.
  EXPECT_EQ(bootstrap({}, types).out, "");
  EXPECT_EQ(read_file(log).substr(0, 8), "0\n1\n2\n3\n");
  EXPECT_LE(std::stoi(read_file(log).substr(8)), 6);
  EXPECT_EQ(bootstrap({"--lock-latest"}, types).out, "");
  EXPECT_GE(std::stoi(read_file(log).substr(8)), 21 + 5);
  EXPECT_LE(std::stoi(read_file(log).substr(8)), 21 + 6);
}
