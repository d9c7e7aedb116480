// runenv-publish as a producer runs it: the real tar, and the bootstrapper as the reader.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "tests/program.h"

static const std::string kItem = "server/www/2/runenv/platform/5/";

static std::string quoted(const std::string& word) {
  std::string result = "'";
  for (const char c : word) result += c == '\'' ? "'\\''" : std::string(1, c);
  return result + "'";
}

class PublishTest : public ProgramTest {
 protected:
  PublishTest() {
    EXPECT_EQ(run("mkdir -p server/www source && echo content >source/file &&"
                  " tar -C source -czf archive . && echo no archive >text &&"
                  " head -c -9 archive >short && (cat archive && echo) >long")
                  .status,
              0);
  }
  ~PublishTest() override { run("local-server.sh stop server"); }

  // Publishes a release of the platform at 5.
  Outcome publish(const std::string& release, const std::string& options = "--from source") {
    return run("runenv-publish server/www platform 5 " + options + " -- " + quoted(release));
  }
  static std::vector<std::string> tree() {
    std::vector<std::string> result;
    for (const auto& entry : files::recursive_directory_iterator("server/www")) {
      result.push_back(entry.path());
    }
    std::sort(result.begin(), result.end());
    return result;
  }
  static std::string latest() { return read_file(kItem + "latest"); }
  static std::string installed(const std::string& release) {
    return local("platform/5/" + release + "/file");
  }
};

TEST_F(PublishTest, TheBootstrapperInstallsWhatIsPublished) {
  const std::string odd = "-r.:@~,;=+!$&'()*|^\"`<>\xc3\xa9";
  EXPECT_EQ(run("local-server.sh start server").status, 0);
  EXPECT_EQ(publish(odd, "--platform '-p:;,' --from=source").status, 0);
  for (const std::string source : {"source", "archive"}) {
    const Outcome outcome = run("runenv-publish server/www system-type alpha 1.4 " + source +
                                " --from " + source + " --platform '-p:;,'");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out + outcome.err, "");
    EXPECT_EQ(bootstrap("--target '-p:;,'", "alpha=1.4").status, 0);
    EXPECT_EQ(local("system-types/alpha/1.4/" + source + "/file"), "content\n");
  }
  EXPECT_EQ(installed(odd), "content\n");
  EXPECT_EQ(run("runenv-publish server/www system-type alpha 1.4 source --latest-only").status, 0);
  EXPECT_EQ(bootstrap("--target '-p:;,' --skip-platform", "alpha=1.4").out,
            "- 2/runenv/system-types/alpha/1.4 [updating]\n");
}

TEST_F(PublishTest, ExactlyTheNamesThatReadersTakeAsTheyAreAreAccepted) {
  EXPECT_EQ(run("local-server.sh start server").status, 0);
  for (const char c : std::string("\t\n\r\x7f #%?[]{}\\:&*\"~")) {
    const std::string release = std::string("a") + c + "b";
    files::remove_all(kItem);
    files::remove_all("runenv");
    const bool accepted = publish(release).status == 0;
    files::create_directories(kItem + release);
    files::copy("archive", kItem + release + "/linux-x64.tar.gz",
                files::copy_options::overwrite_existing);
    write_file(kItem + "latest", release + "\n");
    bootstrap();
    EXPECT_EQ(accepted, installed(release) != "") << "with character " << static_cast<int>(c);
  }
}

TEST_F(PublishTest, WhatCannotBePublishedChangesNothing) {
  EXPECT_EQ(publish("r1").status, 0);
  const std::string platform = "runenv-publish server/www platform 5 ", from = " --from source",
                    no_archive = "is not a .tar.gz archive that tar can read (tar: exit status 2)",
                    otherwise = "in it, which readers would not take as it is",
                    hint = "\nTry 'runenv-publish --help'.", name(256, 'n');
  const struct {
    std::string command, error;  // what tar says for itself may stand before
  } kRows[] = {
      {platform + "''" + from, "release is empty"},
      {"runenv-publish server/www platform .. r" + from, "version '..' names another directory"},
      {"runenv-publish server/www system-type /a 1 r" + from,
       "system type '/a' has '/' " + otherwise},
      {platform + "'a\nb'" + from, "release 'a\\x0ab' has '\\x0a' " + otherwise},
      {platform + "latest" + from, "release 'latest' would stand where the pointer does"},
      {platform + name + " --latest-only", "release '" + name + "' is longer than 255 bytes"},
      {platform + "r --platform " + name + from,
       "platform '" + name + "' is longer than 248 bytes"},
      {platform + "r --from text", "text: " + no_archive},
      {platform + "r --from short", "short: " + no_archive},
      {platform + "r --from long", "long: " + no_archive},
      {platform + "r --from none", "none: No such file or directory"},
      {platform + "r --from /dev/null", "/dev/null: is neither a directory nor a regular file"},
      {"runenv-publish none platform 5 r" + from, "none: No such file or directory"},
      {platform + "r1" + from, kItem + "r1/linux-x64.tar.gz: is published already; --replace "
                                       "replaces it, --latest-only moves the pointer to it"},
      {platform + "r2 --latest-only", "release 'r2' has no archive"},
      {platform + "r2 --platform other" + from,
       "release 'r2' lacks an archive for platform 'linux-x64', which 'r1', the latest so far, "
       "has; move the pointer when all are there (--keep-latest until then), or give "
       "--drop-platforms"},
      {platform + "r1 --latest-only --replace",
       "--latest-only goes with --drop-platforms alone" + hint},
      {platform + "r2", "--from is needed, or --latest-only" + hint},
      {platform + from, "platform takes a version and a release" + hint},
      {"runenv-publish server/www type", "unknown kind of item 'type'" + hint},
      {platform + "r --from a --from b", "option '--from' is given twice" + hint},
      {platform + "r --from=", "option '--from' needs a directory or an archive" + hint},
      {platform + "r --replace=x", "unknown option '--replace=x'" + hint},
      {"p=$(command -v runenv-publish); PATH=/nowhere; $p server/www platform 5 r" + from,
       "tar: No such file or directory"},
      {"mkdir bin; printf 'kill -9 $$' >bin/tar; chmod +x bin/tar; " + platform + "r" + from,
       "source: could not be packed (tar: Killed)"},
      {"printf '[ $1 != -c ] && exec /bin/tar \"$@\"; echo junk' >bin/tar; " + platform + "r" +
           from,
       "source: " + no_archive},
  };
  const auto before = tree();
  for (const auto& row : kRows) {
    const Outcome outcome = run(row.command);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(outcome.err.ends_with("runenv-publish: " + row.error + "\n")) << outcome.err;
    EXPECT_EQ(tree(), before);
    EXPECT_EQ(latest(), "r1\n");
  }
}

TEST_F(PublishTest, ThePointerMovesWhenAllPlatformsAreThere) {
  const struct {
    std::string release, options;
    int status;
    std::string latest;
  } kSteps[] = {
      {"r1", "--from source --platform a --keep-latest", 0, ""},
      {"r1", "--from archive --platform b", 0, "r1\n"},
      {"r2", "--from source --platform a --keep-latest", 0, "r1\n"},
      {"r2", "--latest-only", 1, "r1\n"},
      {"r2", "--latest-only --drop-platforms", 0, "r2\n"},
      {"r1", "--latest-only", 0, "r1\n"},
      {"r2", "--from archive --platform b", 0, "r2\n"},
      {"r2", "--from archive --platform b --replace", 0, "r2\n"},
  };
  for (const auto& step : kSteps) {
    EXPECT_EQ(publish(step.release, step.options).status, step.status);
    EXPECT_EQ(latest(), step.latest);
  }
  EXPECT_EQ(read_file(kItem + "r1/a.tar.gz"), read_file(kItem + "r2/a.tar.gz"));  // reproducible
  EXPECT_EQ(read_file(kItem + "r2/b.tar.gz"), read_file("archive"));
  EXPECT_EQ(run("umask 027; runenv-publish server/www platform 6 r --from source && cd server/www/2"
                " && find runenv/platform/6 -printf '%m %P\\n' | sort")
                .out,
            "640 latest\n640 r/linux-x64.tar.gz\n750 \n750 r\n");
}

TEST_F(PublishTest, InterruptedItLeavesTheOldPointerAndNoTemporary) {
  EXPECT_EQ(publish("r1").status, 0);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGKILL}) {
    stand_in("tar", "echo half; echo $$ >begun.new; mv begun.new begun; exec sleep 100");
    const Run publisher = start("exec runenv-publish server/www platform 5 r2 --from source");
    while (!files::exists("begun")) usleep(1000);
    const pid_t tool = std::stoi(read_file("begun"));
    kill(publisher.child->pid, signal);
    EXPECT_EQ(finish(publisher).status, -signal);
    if (signal == SIGKILL) kill(tool, SIGTERM);
    const std::string command_line = "/proc/" + std::to_string(tool) + "/cmdline";
    for (int i = 0; i < 1000 && read_file(command_line) != ""; ++i) usleep(1000);
    EXPECT_EQ(read_file(command_line), "");
    EXPECT_EQ(latest(), "r1\n");
    const Outcome temporaries = run("find server/www -name '*#*'");
    EXPECT_EQ(temporaries.out == "", signal != SIGKILL) << temporaries.out;
    files::remove("begun");
    files::remove("bin/tar");
  }
  // What the last one left behind is taken for no archive, and stands in nobody's way.
  EXPECT_EQ(publish("r2", "--latest-only").status, 1);
  EXPECT_EQ(publish("r2").status, 0);
  EXPECT_EQ(latest(), "r2\n");
}

TEST_F(PublishTest, AReaderAlwaysFindsAWholePointer) {
  EXPECT_EQ(publish("r1").status, 0);
  EXPECT_EQ(publish("release-two").status, 0);
  std::atomic<bool> done = false;
  int torn = 0;
  std::thread reader([&] {
    while (!done) {
      const std::string line = latest();
      torn += line != "r1\n" && line != "release-two\n";
    }
  });
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(publish(i % 2 == 0 ? "r1" : "release-two", "--latest-only").status, 0);
  }
  done = true;
  reader.join();
  EXPECT_EQ(torn, 0);
}

TEST_F(PublishTest, ADocumentIsWrittenWhereALinkLeads) {
  files::create_symlink("document", "link");
  for (const auto& mode : {files::perms(0600), files::perms(0640)}) {  // dangles the first time
    EXPECT_EQ(run("runenv-versions compose 5 -o link && runenv-versions show document").out, "5\n");
    EXPECT_TRUE(files::is_symlink("link"));
    files::permissions("document", mode);
  }
  EXPECT_EQ(run("runenv-versions compose 5 -o link").status, 0);
  EXPECT_EQ(files::status("document").permissions(), files::perms(0640));
}
