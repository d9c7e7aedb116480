// runenv-served on trees made at random, against a simple description of what it finds, prints and
// removes; on everything that should not lie in a tree; and killed at any moment.
#include <algorithm>
#include <ctime>
#include <map>
#include <random>
#include <set>
#include <string>

#include "fs/path.h"
#include "tests/program.h"

using namespace std::string_literals;

static const std::string kTop = "tree/2/runenv/";

class ServedTest : public ProgramTest {
 protected:
  ServedTest() {
    teller = "runenv-served: ";
    // An archive to copy; a command that prints what a check finds, and holds its status to that.
    write_file("content/file", "content");
    run("tar -czf archive -C content .");
    stand_in("found",
             "runenv-served \"$@\" check >out 2>log; status=$?; sed '$d' out;"
             " [ $status = $(grep -cm 1 -v 'findings: ' out) ]");
  }
  static void set_time(const std::string& path, std::time_t time) {
    EXPECT_EQ(fs::path_t(path).set_utime(time, time), 0) << path;
  }
  static std::set<std::string> names_in(const std::string& path) {
    std::set<std::string> result;
    for (const auto& entry : files::directory_iterator(path)) {
      result.insert(entry.path().filename());
    }
    return result;
  }
  static void put_archive(const std::string& release, const std::string& platform,
                          std::time_t time = std::time(nullptr)) {
    const std::string path = kTop + release + "/" + platform + ".tar.gz";
    files::create_directories(kTop + release);
    files::copy_file("archive", path);
    set_time(path, time);
  }
  static void point(const std::string& item, const std::string& line) {
    write_file(kTop + item + "/latest", line);
  }
};

// What a tree is to hold: for each item its releases, with their time and platforms, and a pointer.
struct Release {
  std::time_t time;
  std::set<std::string> platforms;
};
struct Item {
  std::map<std::string, Release> releases;
  std::string pointer;
  bool has_pointer, moves_later;

  bool leads() const { return has_pointer && releases.contains(pointer); }
  std::vector<std::string> by_time() const {  // the newest first
    std::vector<std::string> result;
    for (const auto& [name, release] : releases) result.push_back(name);
    std::sort(result.begin(), result.end(), [&](const auto& a, const auto& b) {
      return std::pair(releases.at(a).time, a) > std::pair(releases.at(b).time, b);
    });
    return result;
  }
  std::string problem() const {
    if (!has_pointer) return "is missing";
    if (pointer.empty()) return "is empty";
    if (!leads()) return "names '" + pointer + "', which is not there";
    return releases.at(pointer).platforms.empty() ? "names '" + pointer + "', which has no archive"
                                                  : "";
  }
};
using Model = std::map<std::string, Item>;

static constexpr std::time_t kDay = 86400;

static Model random_model(std::mt19937& random, std::time_t now) {
  Model model;
  for (const char* name :
       {"platform/5", "platform/6", "system-types/a/1", "system-types/<&>/'\"+"}) {
    if (random() % 3 == 0) continue;
    Item& item = model[name];
    for (const char* release : {"r1", "r2", "r3", "r-4", "\xc3\xa9\xff", ".5"}) {
      if (random() % 3 == 0) continue;
      auto& [time, platforms] = item.releases[release];
      time = now - kDay / 2 - static_cast<std::time_t>(random() % 5) * kDay;
      for (const char* platform : {"x64", "arm64", "p.q~"}) {
        if (random() % 3 != 0) platforms.insert(platform);
      }
    }
    const char* const pointers[] = {"r1", "r2", "r3", "r-4", "none", ""};
    item.pointer = pointers[random() % std::size(pointers)];
    item.has_pointer = random() % 8 != 0;
    item.moves_later = random() % 4 == 0;
  }
  return model;
}

static std::string expected_findings(const Model& model) {
  std::string releases, pointers;
  for (const auto& [name, item] : model) {
    for (const auto& [release, content] : item.releases) {
      if (content.platforms.empty()) {
        releases += "2/runenv/" + name + "/" + release + ": has no archive\n";
      }
    }
    if (item.releases.empty() && !item.has_pointer) {
      releases += "2/runenv/" + name + ": is empty\n";
    }
    if (item.problem() != "") {
      pointers += "2/runenv/" + name + "/latest: " + item.problem() + "\n";
    }
  }
  if (!model.begin()->first.starts_with("platform"))
    releases = "2/runenv/platform: is empty\n" + releases;
  return releases + pointers;
}

TEST_F(ServedTest, RandomTreesAreListedCheckedAndPruned) {
  std::mt19937 random(11);
  const std::time_t now = std::time(nullptr);
  for (int round = 0; round < 40; ++round) {
    files::remove_all("tree");
    files::create_directories(kTop + "platform");
    const Model model = random_model(random, now);
    for (const auto& [name, item] : model) {
      files::create_directories(kTop + name);
      for (const auto& [release, content] : item.releases) {
        const std::string path = kTop + name + "/" + release;
        files::create_directories(path);
        size_t i = 0;  // the archive in the middle is the newest
        for (const std::string& platform : content.platforms) {
          put_archive(name + "/" + release, platform,
                      content.time - (i++ == content.platforms.size() / 2 ? 0 : kDay));
        }
        set_time(path, content.time);
      }
      if (!item.has_pointer) continue;
      point(name, item.pointer + "\n");
      set_time(kTop + name + "/latest", item.moves_later ? now + kDay : now - kDay);
    }
    std::string expected;
    for (const auto& [name, item] : model) {
      const std::time_t since = item.moves_later ? now + kDay : now - kDay;
      expected +=
          name + "\n" + (item.leads() ? item.pointer + "\n" + std::to_string(since) : "null\nnull");
      expected += "\n" + (item.problem() == "" ? "null" : item.problem()) + "\n";
      for (const std::string& release : item.by_time()) {
        const auto& [time, platforms] = item.releases.at(release);
        const size_t size = files::file_size("archive");
        expected += (release == "\xc3\xa9\xff" ? "\xc3\xa9\xef\xbf\xbd" : release) + "\n";
        expected += std::to_string(time) + "\n" + std::to_string(platforms.size() * size) + "\n";
        for (const auto& platform : platforms)
          expected += platform + "\n" + std::to_string(size) + "\n";
      }
    }
    const Outcome listed =
        run("runenv-served tree list --json | jq -r '.items[] | .name, .latest, (.since | "
            "fromdate? // null),"
            " .problem, (.releases[] | .name, (.published | fromdate), .bytes, (.archives[] | "
            ".platform, .bytes))'");
    EXPECT_EQ(listed.out, expected);
    EXPECT_EQ(run("runenv-served tree check --quick | sed '$d'").out, expected_findings(model));

    const size_t keep = random() % 3, days = random() % 5;
    const bool dry = random() % 3 == 0;
    const std::string command = "runenv-served tree prune --grace 0 --keep " +
                                std::to_string(keep) + (dry ? " --dry-run" : "") +
                                (days != 0 ? " --older-than=" + std::to_string(days) : "");
    const Outcome pruned = run(command);
    EXPECT_EQ(pruned.status, 0) << command << pruned.err;
    for (const auto& [name, item] : model) {
      std::set<std::string> stay, old;
      size_t others = 0;
      for (const std::string& release : item.by_time()) {
        const std::time_t age = now - item.releases.at(release).time;
        const bool goes = (!item.leads() || release != item.pointer) && others++ >= keep &&
                          age >= static_cast<std::time_t>(days) * kDay;
        (goes ? old : stay).insert(release);
      }
      const bool leaves = !old.empty() && (!item.leads() || item.moves_later);
      EXPECT_EQ(pruned.out.find("leaving 2/runenv/" + name + ": latest ") != std::string::npos,
                leaves);
      if (dry || leaves) stay.merge(old);
      if (item.has_pointer) stay.insert("latest");
      EXPECT_EQ(names_in(kTop + name), stay) << command << "\n" << listed.out << pruned.out;
    }
  }
}

// What lies in the tree beside platform/5 with its latest r2 and with r1, and what a check finds.
static const Row kFindings[] = {
    {"echo >2/f; echo >2/runenv/f; mkdir 2/runenv/d",
     "2/f: does not belong there\n"
     "2/runenv/d: does not belong there\n2/runenv/f: does not belong there\n"},
    {"mkdir -p 2/runenv/system-types/a; echo >2/runenv/platform/.runenv-f; mkfifo $p/p",
     "2/runenv/platform/.runenv-f: does not belong there\n$p/p: does not belong there\n"
     "2/runenv/system-types/a: is empty\n"},
    {"mkfifo $p/r1/p.tar.gz; mkdir $p/r1/d.tar.gz; echo >$p/r1/README",
     "$p/r1/README: does not belong there\n$p/r1/d.tar.gz: does not belong there\n"
     "$p/r1/p.tar.gz: does not belong there\n"},
    {"mkdir \"$p/$(printf 'a\\nb\\033')\" \"$p/a#b\"; cp $p/r1/x.tar.gz $p/r1/.tar.gz",
     "$p/a\\x0ab\\x1b: has a name that clients cannot ask for\n"
     "$p/a#b: has a name that clients cannot ask for\n"
     "$p/r1/.tar.gz: has a name that clients cannot ask for\n"},
    {"ln -s . $p/loop; ln -s /etc 2/runenv/platform/6; ln -s r1 $p/r3; ln -s x.tar.gz "
     "$p/r1/y.tar.gz",
     "$p/loop: is a symbolic link\n$p/r1/y.tar.gz: is a symbolic link\n"
     "$p/r3: is a symbolic link\n2/runenv/platform/6: is a symbolic link\n"},
    {"rm $p/latest; ln -s r1/x.tar.gz $p/latest", "$p/latest: is a symbolic link\n"},
    {"rm $p/latest; mkfifo $p/latest", "$p/latest: is not a regular file\n"},
    {"printf 'r1\\rx' >$p/latest"},
    {"truncate -s 1T $p/latest", ""},
    {": >$p/latest; truncate -s 1T $p/latest", "$p/latest: is empty\n"},
    {"printf 'r\\033' >$p/latest", "$p/latest: names 'r\\x1b', which is not there\n"},
    {"rm $p/r2/*", "$p/r2: has no archive\n$p/latest: names 'r2', which has no archive\n"},
    {"echo >tree/robots.txt; mkdir tree/.well-known; umask 77; echo >$p/r1/.runenv-publish#abcdef;"
     " mkdir $p/.runenv-served#removing; tar -czf $p/r1/x.tar.gz -C content --mode=4600 file"},
    {"chmod 700 $p/r1; chmod 640 $p/r2/x.tar.gz; chmod 750 2/runenv tree; chmod 600 $p/latest;"
     " touch tree/index.html tree/index.json; chmod 4600 tree/index.*",
     ".: may not be entered by the web server (mode 0750)\n"
     "index.html: may not be read by the web server (mode 4600)\n"
     "index.json: may not be read by the web server (mode 4600)\n"
     "2/runenv: may not be entered by the web server (mode 0750)\n"
     "$p/r1: may not be entered by the web server (mode 0700)\n"
     "$p/r2/x.tar.gz: may not be read by the web server (mode 0640)\n"
     "$p/latest: may not be read by the web server (mode 0600)\n"},
    {"truncate -s -1 $p/r1/x.tar.gz; truncate -s 0 $p/r2/x.tar.gz",
     "$p/r2/x.tar.gz: $no\n$p/r1/x.tar.gz: $no\n"},
    {"printf abc | gzip >$p/r1/x.tar.gz", "$p/r1/x.tar.gz: $no\n"},
    {"mkfifo f; tar -czf $p/r1/x.tar.gz f",
     "$p/r1/x.tar.gz: 'f' is neither a file nor a directory nor a link\n"},
    {"ln -s /e l; tar -czf $p/r1/x.tar.gz l; (PATH=$PWD/blind:$PATH; sign r1; sign r2)",
     "$p/r1/x.tar.gz: 'l' is a link that could lead out of the release, to '/e': machines that "
     "verify signatures refuse it\n"},
    {"sign r1; : | gzip >>$p/r1/x.tar.gz",
     "$p/r1/x.tar.gz: has a signature that is damaged or not at the end\n"},
    {"sign r1", "$p/r2/x.tar.gz: is not signed, unlike others of the item\n"},
    {"sign r1; sign r2"},
    {"sign r1; cp $p/r1/x.tar.gz $p/r2; cp $p/r1/x.tar.gz $p/r1/y.tar.gz; touch -d yesterday "
     "$p/r1/*",
     "$p/r2/x.tar.gz: is signed for something else\n"
     "$p/r1/y.tar.gz: is signed for something else\n"},
};

TEST_F(ServedTest, EveryFindingHasItsLine) {
  const std::string p = "2/runenv/platform/5";
  stand_in("../blind/tar", "[ $1 = -t ] || exec /bin/tar \"$@\"");
  stand_in("sign", "runenv-publish tree platform 5 $1 --platform x --sign key");
  run("minisign -G -W -p public -s key; mkdir -p base/" + p + "/r1 base/" + p + "/r2; cd base/" +
      p +
      "; cp ../../../../../archive r1/x.tar.gz; touch -d yesterday r1/x.tar.gz;"
      " cp ../../../../../archive r2/x.tar.gz; echo r2 >latest");
  for (Row row : kFindings) {
    for (size_t at; (at = row.out.find("$p")) != std::string::npos;) row.out.replace(at, 2, p);
    for (size_t at; (at = row.out.find("$no")) != std::string::npos;) {
      row.out.replace(at, 3,
                      "is not a .tar.gz archive with files that tar can read (tar: exit status 2)");
    }
    const std::string make = "rm -rf tree; cp -a base tree; ln -s tree/2 2; p=" + p + "; { " +
                             row.command + "; } >log 2>&1; rm 2; ";
    check(make + "found tree", row.out);
  }
  if (run("strace -o /dev/null true").status != 0) return;
  // On a narrow terminal, and where systemd's RestrictSUIDSGID= takes a system call away.
  const std::string shown =
      run("rm -rf tree; cp -a base tree; export ASAN_OPTIONS=detect_leaks=0; script -qec 'stty cols"
          " 20; exec strace -o /dev/null -e inject=openat2:error=ENOSYS runenv-served tree check'"
          " /dev/null")
          .out;
  EXPECT_NE(shown.find("\rreading 1 of 2: 2/r\033[K\r\033[K"), std::string::npos) << shown;
  EXPECT_NE(shown.find("findings: 0"), std::string::npos) << shown;
  // A release loses its name on the disk before anything in it goes.
  check(
      "ASAN_OPTIONS=detect_leaks=0 strace -o /dev/null -e inject=fsync:error=EIO runenv-served tree"
      " prune --grace 0 --keep 0 >log || { ls tree/" +
          p + "/.runenv-served#removing; exit 1; }",
      "x.tar.gz\n", p + ": Input/output error");
}

TEST_F(ServedTest, TreesThatCannotBeSeenWholeAreNotPrunedOrIndexed) {
  const std::string p = kTop + "platform/5/", hint = "\nTry 'runenv-served --help'.";
  setenv("p", "2/runenv/platform/5", 1);
  for (const char* release : {"r1", "r2", "r3"}) put_archive("platform/5/"s + release, "x");
  point("platform/5", "r3");
  run("mkdir -p link/other linked/$p shut/2/runenv/platform/7/r; ln -s other link/2; ln -s"
      " ../../../../../tree/$p/r1 linked/$p; cd tree/$p; touch .runenv-publish#abcdef; chmod -R"
      " a+rX ../../../..; touch -d '2 days ago' r1/* latest; cd $OLDPWD/shut/2/runenv/platform;"
      " mkdir -m 0 5; mkdir -m 444 6; echo junk >7/r/x.tar.gz; umask 777; touch 7/latest");
  // The words, what is printed, and the error, with which the status is the number in front.
  const struct {
    const char *status, *words, *out;
    std::string error;
  } kRows[] = {
      {"2", "tree", "", "a tree and a command are needed: list, check, prune or index" + hint},
      {"2", "tree look", "", "unknown command 'look'" + hint},
      {"2", "tree index --json", "", "'index' does not accept this option" + hint},
      {"2", "tree list --keep 1", "", "'list' does not accept this option" + hint},
      {"2", "tree prune", "",
       "prune needs --keep, the number of releases to keep beside the latest" + hint},
      {"2", "tree prune --keep 1 --grace 1e9", "",
       "option '--grace' needs a number of days, not '1e9'" + hint},
      {"2", "none list", "", "none: No such file or directory"},
      {"2", "tree list >/dev/full", "", "standard output: No space left on device"},
      {"2", "content list", "", "content/2/runenv: No such file or directory"},
      {"0", "tree prune --keep 0", "freed 0 B\n", ""},
      {"0",
       "tree prune --keep 0 --grace 0 --dry-run --older-than 1.5 | sed 's/)//; s/ (/\\nwould free"
       " /' | sed 2d | uniq | sed 's/free .*/free/'",
       "would remove 2/runenv/platform/5/.runenv-publish#abcdef\n"
       "would remove 2/runenv/platform/5/r1\nwould free\n",
       ""},
      {"2", "link list", "", "link/2/runenv: is behind a symbolic link"},
      {"1", "linked list | tail -n 2", "platform/5: latest is missing\n1 item, 0 releases, 0 B\n",
       "2/runenv/platform/5/r1: is a symbolic link"},
      {"2", "linked prune --keep 0 --grace 0", "", "2/runenv/platform/5/r1: is a symbolic link"},
      {"2", "linked index", "",
       "2/runenv/platform/5/r1: is a symbolic link\nrunenv-served: the index was not written, "
       "because it would be incomplete"},
      {"1", "shut check --quick | sed '/by the web/d'",
       "2/runenv/platform/5: cannot be read: Permission denied\n"
       "2/runenv/platform/6: cannot be read: Permission denied\n"
       "2/runenv/platform/5/latest: is missing\n2/runenv/platform/6/latest: is missing\n"
       "2/runenv/platform/7/latest: cannot be read: Permission denied\n"
       "3 items, 1 release; findings: 8\n",
       ""},
      {"2", "shut prune --keep 0 --grace 0", "",
       "2/runenv/platform/5: cannot be read: Permission denied"},
  };
  for (const auto& [status, words, out, error] : kRows) {
    const Outcome outcome =
        run(ordinary + "bash -o pipefail -c \"$as runenv-served " + words + "\"");
    EXPECT_EQ(std::to_string(outcome.status), status) << words << outcome.err;
    EXPECT_EQ(outcome.out, out) << words;
    EXPECT_EQ(outcome.err, error == "" ? "" : teller + error + "\n") << words;
  }
  run("chmod -R u+rwx shut");
  EXPECT_EQ(names_in(p),
            (std::set<std::string>{".runenv-publish#abcdef", "latest", "r1", "r2", "r3"}));
  // A part of a day is enough. What was changed within it stays, and all if that is the pointer.
  check(
      "cp -a tree other; sleep 2; chmod g+w tree/$p/r1 tree/$p/r2/x.tar.gz other/$p/latest; for t"
      " in tree other; do runenv-served $t prune --grace 0.00002 --keep 0; done | grep '5/r\\|5: '",
      "leaving 2/runenv/platform/5: latest was moved within the grace period\n");
  // An interrupted run's rest goes; publishers are waited for.
  check(
      "cd tree/$p; touch .runenv-publish#abcdef ../.runenv-publish#abcdef; mkdir -p"
      " .runenv-served#removing/x; sleep 1; exec 9<.; flock 9; runenv-served ../../../.. prune"
      " --grace 0.00001 --keep 1 >$OLDPWD/out 9<&- & sleep 0.3; ls; exec 9<&-; wait; ls -A; cd"
      " $OLDPWD; sed 's/ (.*//; s/d .*/d/' out; found tree",
      "latest\nr1\nr2\nr3\nlatest\nr2\nr3\n"
      "removing 2/runenv/platform/.runenv-publish#abcdef\n"
      "removing 2/runenv/platform/5/.runenv-publish#abcdef\n"
      "removing 2/runenv/platform/5/.runenv-served#removing\n"
      "removing 2/runenv/platform/5/r1\nfreed\n");
}

TEST_F(ServedTest, KilledAtAnyMomentItLeavesARightTree) {
  // Every archive and each page is whole or not there, and the pointer leads to one.
  const std::string p = kTop + "platform/5/";
  std::mt19937 random(5);
  for (int round = 0; round < 25; ++round) {
    for (int release = 0; release < 12; ++release) {
      const std::string name = "platform/5/r" + std::to_string(release);
      if (files::exists(kTop + name)) continue;
      for (int i = 0; i < 40; ++i) put_archive(name, std::to_string(i));
    }
    point("platform/5", "r" + std::to_string(random() % 12));
    const std::string kept = read_file(p + "latest");
    const bool prunes = round % 2 == 0;
    const Run running = start(prunes ? "exec runenv-served tree prune --keep 2 --grace 0"
                                     : "exec runenv-served tree index");
    usleep(static_cast<useconds_t>(random() % 12000));
    kill(running.child->pid, random() % 2 == 0 ? SIGKILL : SIGTERM);
    finish(running);
    EXPECT_EQ(read_file(p + "latest"), kept);
    EXPECT_TRUE(files::exists(p + kept));
    for (const std::string& name : names_in(p)) {
      EXPECT_EQ(name.starts_with("r") ? names_in(p + name).size() : 40, 40) << name;
    }
    check(
        "runenv-served tree check --quick | sed '$d'; [ ! -e tree/index.json ] || jq -r"
        " '.items[].name' tree/index.json; [ ! -e tree/index.html ] || tail -n 1 tree/index.html",
        !files::exists("tree/index.json")   ? ""
        : !files::exists("tree/index.html") ? "platform/5\n"
                                            : "platform/5\n</html>\n");
  }
  run("runenv-served tree prune --keep 0 --grace 0; runenv-served tree index");
  EXPECT_EQ(names_in(p), (std::set<std::string>{"latest", read_file(p + "latest")}));
  EXPECT_EQ(names_in("tree"), (std::set<std::string>{"2", "index.html", "index.json"}));
}

TEST_F(ServedTest, TheIndexIsTheSameForTheSameTreeAndLeadsToWhatIsThere) {
  const std::string name = "platform/<script>&'\"+\xc3\xa9\xff;";
  write_file("archive", std::string(1000, 'x'));
  for (int release = 1; release <= 120; ++release) {
    put_archive(name + "/r" + std::to_string(release), "<b>", release * kDay);
  }
  put_archive(name + "/r3", "x", 3 * kDay);
  point(name, "r3");  // which is not among the newest
  // Of two that run at once, the second waits. A page that was closed by hand is opened.
  check(
      "umask 77; touch tree/index.html; exec 9<tree; flock 9; runenv-served tree index 9<&- &"
      " sleep 0.2; umask 77; [ ! -e tree/index.json ] || echo early; exec 9<&-; wait; stat -c %a "
      "tree/index.*; cp -a tree copy; rm copy/index*; runenv-served copy index; diff -r tree copy; "
      "! grep '<script\\|<b>' tree/index.html",
      "644\n644\n");
  check("mkdir -p none/2/runenv; runenv-served none index; grep '<p>[0N]' none/index.html",
        "<p>0 items, 0 releases, 0 B.</p>\n<p>Nothing is published yet.</p>\n");
  const std::string page = read_file("tree/index.html");
  // Its links: the pointer, where it leads, and the 50 newest.
  check(
      "cd tree; grep -o 'href=\"2/[^\"]*' index.html | cut -c7- | sort -u | sed 's/%/\\\\x/g' "
      ">links;"
      " bash -c 'while read -r link; do ls \"$(printf %b \"$link\")\"; done <links | wc -l'; rm "
      "links",
      "53\n");
  for (const char* part :
       {"<p>1 item, 120 releases, 121 kB. Last change <time datetime=\"20", "<h2 id=\"overview\">",
        "<title>120 releases of platform/&lt;script&gt;&amp;&#39;&quot;+",
        "<strong><bdi>r3</bdi></strong> since",
        "<desc>From 1970-01-02 to 1970-05-01, up to 2.0 kB large.</desc>",
        "d=\"M6 46v-21M14 46v-21M23 46v-38M31 46v-21", "d=\"M23 46V8\"",
        "<bdi>r120</bdi></th><td><time datetime=\"1970-05-01T00:00:00Z\">1970-05-01 "
        "<span class=\"quiet\">00:00</span></time></td><td class=\"number\">1.0 kB</td>",
        "45 older releases", "70 releases before these"}) {
    EXPECT_NE(page.find(part), std::string::npos) << part;
  }
  check("TZ=AAA-15 runenv-served tree list | sed -n '1p; / r3 /p; $p'",
        "ITEM                      RELEASE  POINTER  PUBLISHED         SIZE    PLATFORMS\n" + name +
            "  r3       latest   1970-01-04 15:00  2.0 kB  <b> x\n1 item, 120 releases, 121 kB\n");
  // A page of few releases says nothing of more, and a whole tree's nothing of problems.
  check(
      "rm -r tree/*/*/*/*/r[4-9] tree/*/*/*/*/r??*; runenv-served tree index; cd tree; grep -c"
      " 'before these\\|older rel\\|roken\\|Nothing' *.html; grep -c 'r3</bdi> <span .*>latest' "
      "*.html",
      "0\n1\n");
}
