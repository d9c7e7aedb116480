// runenv-prune on trees made at random, against a simple description of what it removes, and beside
// a bootstrapper at work.
#include <map>
#include <random>
#include <string>

#include "tests/program.h"

using namespace std::string_literals;

static const std::string kHere = "runenv/system-types/a/1/";

class PruneTest : public ServerTest {
 protected:
  PruneTest() {
    teller = "runenv-prune: ";
    // Sizes depend on the file system: N.
    stand_in(
        "prune",
        "runenv-prune \"$@\" >said; status=$?; sed \"s/[0-9.]* k*B\\\\>/N/; s|$h/|HERE/|\" said;"
        " exit $status");
    setenv("h", "runenv/system-types/a/1", 1);
  }
  // Everything below a directory, by path, with what links lead to.
  std::string all(const std::string& path) {
    return run("cd " + path + " && find . -printf '%P %y %l\\0' | LC_ALL=C sort -z").out;
  }
};

// A pointer, and whether releases beside it may go.
struct Pointer {
  const char* make;  // by a command of the shell, in the item's directory
  bool good;
};
static const Pointer kPointers[] = {
    {"printf r1 >latest", true},    {"echo r1 >latest", true},       {":", false},
    {": >latest", false},           {"printf .. >latest", false},    {"printf /etc >latest", false},
    {"printf r1/x >latest", false}, {"printf none >latest", false},  {"printf . >latest", false},
    {"printf link >latest", false}, {"ln -s r1/file latest", false}, {"printf file >latest", false},
};
// What may lie beside a pointer: how it is made, and whether it is a release.
static const std::map<std::string, std::pair<const char*, bool>> kEntries = {
    {"r1", {"mkdir -p r1/x; echo 1 >r1/file", true}},
    {"r2", {"mkdir r2; echo 2 >r2/file; chmod 555 r2; touch -d @0 r2", true}},
    {"-rf", {"mkdir -p ./-rf/x; ln -s ../../../../../../outside ./-rf/x/y", true}},
    {"a\nb", {"mkdir 'a\nb'", true}},
    {".r", {"mkdir .r; chmod 0 .r", true}},
    {"link", {"ln -s ../../../../outside link", false}},
    {"file", {"echo >file", false}},
    {"nested", {"mkdir nested; : >nested/latest", false}},
    {"o#p", {"mkdir 'o#p'", false}},
};

TEST_F(PruneTest, OnlyWhatNoPointerNamesIsRemoved) {
  std::mt19937 random(7);
  run("mkdir outside; echo mine >outside/file; runenv-versions compose -o versions.bin 5 a=./1/.");
  for (int round = 0; round < 40; ++round) {
    // First each pointer where most would go.
    const bool first = round < static_cast<int>(std::size(kPointers));
    const Pointer& pointer = kPointers[first ? round : 0];
    const bool old = first || random() % 4 != 0, dry = !first && random() % 4 == 0,
               unlisted = random() % 2 == 0, fresh = random() % 3 == 0;
    const size_t keep = first ? 0 : random() % 3;
    std::vector<std::string> releases, others;  // the newest last
    std::string make =
        "chmod -R u+rwx runenv; rm -rf runenv; mkdir -p " + kHere +
        " runenv/system-types/b/2/r1 runenv/system-types/b/.runenv-prune#removing/x; echo r1"
        " >runenv/system-types/b/2/latest; mkdir -p runenv/platform/4; touch -d '" +
        std::string(fresh ? "6" : "8") + " days ago' runenv/system-types/b/2/latest; cd " + kHere +
        "; ";
    for (const auto& [name, entry] : kEntries) {
      if (!first && random() % 2 == 0) continue;
      make += std::string(entry.first) + "; ";
      (entry.second ? releases : others).push_back(name);
    }
    const bool named = make.find("mkdir -p r1/x") != std::string::npos;
    write_file("make", make + pointer.make + (old ? "; touch -hd '8 days ago' latest" : ""));
    const bool other = round % 2 == 0 && getuid() == 0;
    const std::string as = other ? "setpriv --reuid 65534 --clear-groups " : "";
    run((other ? ordinary : "") + as + "sh make");
    const bool prunes = pointer.good && named && old;
    std::erase(releases, "r1");
    const std::string before = all("runenv"),
                      command = as + "runenv-prune versions.bin --keep " + std::to_string(keep) +
                                (dry ? " --dry-run" : "") + (unlisted ? " --unlisted" : "");
    const Outcome outcome = run(command);
    const std::string context = make + pointer.make + "\n" + command + "\n" + outcome.out;
    EXPECT_EQ(outcome.status, std::string(pointer.make).starts_with("ln") ? 1 : 0)
        << context << outcome.err;
    for (size_t i = 0; i < releases.size(); ++i) {
      const bool goes = prunes && !dry && i + keep < releases.size();
      EXPECT_EQ(files::exists(kHere + releases[i]), !goes) << context;
    }
    for (const std::string& name : others) EXPECT_TRUE(files::exists(kHere + name)) << context;
    EXPECT_TRUE(files::exists("runenv/platform/4")) << context;  // there is no pointer
    EXPECT_EQ(files::exists("runenv/system-types/b/2"), dry || !unlisted || fresh) << context;
    EXPECT_EQ(files::exists("runenv/system-types/b/.runenv-prune#removing"), dry) << context;
    EXPECT_TRUE(!dry || all("runenv") == before) << context;
    EXPECT_EQ(all("outside"), " d \0file f \0"s) << context;
  }
  run("chmod -R u+rwx runenv");
}

TEST_F(PruneTest, TellsWhatItDoesAndWaitsForRuns) {
  const std::string hint = "\nTry 'runenv-prune --help'.";
  run("mkdir -p $h/r1 $h/r2 runenv/platform .update down/d.tar.gz no; printf r2 >$h/latest; touch"
      " -d '8 days ago' $h/latest; ln -s ../system-types/a runenv/platform/6; ln -s down link; for"
      " d in .update down; do touch $d/latest $d/l.tar.gz $d/mine; touch -d '8 days ago' $d/*;"
      " touch -d '1 hour' $d/new.tar.gz; done; runenv-versions compose -o versions.bin 5 a=1; "
      "runenv-versions"
      " compose -o up 5 ..=../..; runenv-versions compose -o six 6");
  const Row kRows[] = {
      {"", "", "one document is needed" + hint},
      {"--keep -1 v", "", "option '--keep' needs a number, not '-1'" + hint},
      {"--older-than 4294967296 v", "",
       "option '--older-than' needs a number, not '4294967296'" + hint},
      {"none", "", "none: No such file or directory"},
      {"up --directory none", "", "none/runenv: No such file or directory"},
      {"up --temp-cache no", "freed N\n",
       "runenv/system-types/../../..: leads out of the environment"},
      {"six --temp-cache no", "freed N\n", "runenv/platform/6: is behind a symbolic link"},
      {"versions.bin --dry-run --temp-cache down",
       "would remove HERE/r1 (N)\nwould remove down/l.tar.gz (N)\nwould remove down/latest (N)\n"
       "would free N\n"},
      {"versions.bin --older-than 9 --unlisted; mkdir no runenv/platform/5;"
       " prune versions.bin --dry-run --keep 1 --temp-cache no; rmdir no runenv/platform/5",
       "freed N\nleaving runenv/platform/5: there is no latest\nwould free N\n"},
      {"versions.bin; ls -A .update",
       "removing HERE/r1 (N)\nremoving .update/l.tar.gz (N)\nremoving .update/latest (N)\n"
       "freed N\nmine\nnew.tar.gz\n"},
      {"versions.bin --temp-cache link; ls -A down",
       "leaving link: is not a directory\nfreed N\nd.tar.gz\nl.tar.gz\nlatest\nmine\nnew.tar.gz\n"},
      {"versions.bin --older-than 0 --temp-cache down; ls -A down",
       "removing down/l.tar.gz (N)\nremoving down/latest (N)\nremoving down/new.tar.gz (N)\n"
       "freed N\nd.tar.gz\nmine\n"},
  };
  for (const auto& [words, out, error] : kRows) check("prune " + words, out, error);
  // What is mounted in a release stays, even from the same file system.
  const Outcome mounted =
      run("mkdir -p $h/r1/sub; unshare -rm sh -c 'mount --bind down $h/r1/sub || exit 77; prune"
          " versions.bin'; status=$?; ls down; rm -r $h/.runenv-prune#removing; exit $status");
  if (mounted.status != 77) {
    EXPECT_EQ(std::to_string(mounted.status) + mounted.out,
              "1removing HERE/r1 (N)\nfreed N\nd.tar.gz\nmine\n");
  }
  // What interrupted programs have left goes; what is at work stays, and is waited for.
  check(
      "mkdir -p $h/.runenv-prune#removing/x $h/.runenv-verify#unpacking/x;"
      " flock $h/.runenv-verify#unpacking prune versions.bin; ls -A $h; prune versions.bin; ls $h",
      "removing HERE/.runenv-prune#removing (N)\nfreed N\n.runenv-verify#unpacking\nlatest\nr2\n"
      "removing HERE/.runenv-verify#unpacking (N)\nfreed N\nlatest\nr2\n");
  check(
      "mkdir runenv/platform/.runenv-prune#removing; flock runenv/platform prune versions.bin;"
      " ls -A runenv/platform; prune versions.bin; ls -A runenv/platform",
      "freed N\n.runenv-prune#removing\n6\n"
      "removing runenv/platform/.runenv-prune#removing (N)\nfreed N\n6\n");
  check(
      "mkdir $h/r3; exec 9<>$h/latest; flock 9; prune versions.bin >out 9<&- & sleep 0.3; ls $h;"
      " exec 8>new; flock 8; printf r3 >&8; touch -d '9 days ago' new; mv new $h/latest; exec 9<&-;"
      " sleep 0.3; ls $h; exec 8<&-; wait; ls $h",
      "latest\nr2\nr3\nlatest\nr2\nr3\nlatest\nr3\n");
  // A pointer may name what usually is a leftover. An item may lie in another one.
  check(
      "(cd $h; mv r3 .runenv-prune#removing; printf .runenv-prune#removing >latest; mkdir ../../r;"
      " printf r >../../latest); runenv-versions compose -o versions.bin 5 .=. a=1;"
      " prune versions.bin --older-than 0 --temp-cache no; ls -A $h",
      "freed N\n.runenv-prune#removing\nlatest\n");
  // A bootstrapper that installs an item is waited for.
  stand_in("tar", "sleep 0.5; exec /bin/tar \"$@\"");
  check(
      "rm -r runenv .update; runenv-versions compose -o five 5; runenv-bootstrap --lock-latest five"
      " >log & sleep 0.3; runenv-prune --temp-cache no five; ls -A runenv/platform/5",
      "freed 0 B\nlatest\nr1\n");
  EXPECT_EQ(run("runenv-prune versions.bin >/dev/full").status, 1);
}
