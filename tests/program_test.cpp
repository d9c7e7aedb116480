// Runs the programs as a user does, with a real web server with TLS, and with the real curl and
// tar. A fake tool is used only for what the real one cannot be made to do.
#include "tests/program.h"

#include <linux/close_range.h>

// schema_test tests the other invalid command lines and documents.
TEST_F(ProgramTest, BadInputEndsTheRunBeforeItChangesAnything) {
  const Row kRows[] = {
      {"runenv-bootstrap --help 2>&1 >&-", read_file(TEST_DATA "/usage.txt")},
      {"runenv-bootstrap missing.bin", "", "Unable to open versions 'missing.bin'"},
      {"(runenv-versions compose 5; echo) >long; runenv-bootstrap long", "",
       "Unable to parse versions: trailing bytes"},
      {"mkdir d; runenv-bootstrap d", "",
       "Unable to parse versions: insufficient bytes to read fingerprint"},
  };
  for (const Row& row : kRows) check(row.command, row.out, row.error);
  EXPECT_FALSE(files::exists(".update"));
}

TEST_F(ProgramTest, DocumentToolWritesAndPrints) {
  const std::string listing = "2.0\nalpha=1.4\nbeta=0=9\nempty=\n",
                    usage = run("runenv-versions --help").out,
                    hint = "\nTry 'runenv-versions --help'.", full = "No space left on device",
                    closed = ordinary + "$as runenv-versions compose 5 -o closed/";
  EXPECT_TRUE(usage.starts_with("usage: runenv-versions compose [-o FILE] PLATFORM_VERSION"));
  setenv("v", "runenv-versions", 1);
  teller = "runenv-versions: ";
  const Row kRows[] = {
      {"mkdir d; $v compose 2.0 beta=0=9 empty= alpha=1.4 --output=d/v"},
      {"$v show d/v", listing},
      {"$v compose 2.0 beta=0=9 alpha=1.4 empty= | cmp - d/v"},
      {"$v compose -o dash -- -5 -o=1 && $v show dash", "-5\n-o=1\n"},
      {"$v show --help", usage},
      {"$v compose --version | grep -c '^runenv-versions [0-9.]*$'", "1\n"},
      // Writes to the target of links, and to an open file that was removed.
      {"ln -s f last; ln -s ././././last l; $v compose 5 -o l; $v show f", "5\n"},
      {"chmod 640 f; $v compose 6 -o l; stat -c %a f; readlink l", "640\n././././last\n"},
      {"ln -s /proc/self/fd/1 out; exec 8>f 7<f; rm f; : >'f (deleted)'; $v compose 7 -o out >&8 &&"
       " $v show /dev/fd/7; readlink out",
       "7\n/proc/self/fd/1\n"},
      {"(cat d/v; echo) >bad; $v show bad", "", "bad: trailing bytes"},
      {"$v show no", "", "no: No such file or directory"},
      {"$v show /proc/self/mem", "", "/proc/self/mem: Input/output error"},
      {"$v compose 1 a=1 b=2 a=3 -o d/v", "", "system type 'a' is given twice"},
      {"$v compose 1 -o /dev/full", "", "/dev/full: " + full},
      {"$v compose 1 -o d", "", "d: Is a directory"},
      {"$v compose 1 -o d/v/w", "", "d/v/w: Not a directory"},
      {"$v compose 1 -o no/v", "", "no/v: No such file or directory"},
      {"$v compose 1 >/dev/full", "", "standard output: " + full},
      {"$v compose 1 a=$(head -c 999 /dev/zero | tr '\\0' 1) -o long;"
       " (ulimit -f 1; $v show long >cut)",
       "", "standard output: File too large"},
      {"$v show d/v >&-", "", "standard output: Bad file descriptor"},
      {"ln -s none d/l; (ulimit -f 0; $v compose 5 -o d/v; $v compose 5 -o d/l) 2>&1 | cat",
       "runenv-versions: d/v: File too large\nrunenv-versions: d/none: File too large\n"},
      {"mkdir -m 300 closed; " + closed + "v", "", "closed: Permission denied"},
      {"umask 0; : >closed/v; " + closed + "v", "", "closed: Permission denied"},
      {"$v", "", "a command is needed, compose or show" + hint},
      {"$v print", "", "unknown command 'print'" + hint},
      {"$v show", "", "show needs one file" + hint},
      {"$v compose", "", "compose needs a platform version" + hint},
      {"$v compose 1 a", "", "system type 'a' is not of the form NAME=VERSION" + hint},
      {"$v compose 1 =1", "", "system type '=1' has no name" + hint},
      {"$v compose -x", "", "unknown option '-x'" + hint},
      {"$v compose 1 --output=", "", "option '--output' needs a file" + hint},
      {"$v compose 1 -o a --output b", "", "option '--output' is given twice" + hint},
      // The failures above changed nothing.
      {"$v show d/v; ls -A d; chmod 700 closed; wc -c closed/*", listing + "l\nv\n0 closed/v\n"},
  };
  for (const Row& row : kRows) check(row.command, row.out, row.error);
}

TEST_F(ServerTest, InstallsOnceAndThenOnlyWhatHasChanged) {
  const auto installed = [](const std::string& item, const std::string& release) {
    return local(item + "/latest") + ": " + local(item + "/" + release + "/file");
  };
  const std::string beta = "system-types/beta/0.9";
  check(
      "runenv-versions compose -o versions.bin 5 beta=0.9 alpha=1.4;"
      " runenv-bootstrap versions.bin",
      "- 2/runenv/platform/5\n- 2/runenv/system-types/alpha/1.4\n"
      "- 2/runenv/system-types/beta/0.9\n");
  EXPECT_EQ(installed("platform/5", "r1"), "r1: platform 5 r1");
  EXPECT_EQ(installed("system-types/alpha/1.4", "a1"), "a1: system-type alpha 1.4 a1");
  EXPECT_FALSE(files::exists(".update"));

  write_file(item("platform/5/latest"), "r1\r\nignored\n");
  check("runenv-bootstrap versions.bin");
  EXPECT_FALSE(files::exists(".update"));

  publish("system-type beta 0.9", "b2");
  check(
      "mkdir real; touch real/other; ln -s real cache;"
      " runenv-bootstrap --temp-cache cache versions.bin; readlink cache; ls cache",
      "- 2/runenv/system-types/beta/0.9 [updating]\nreal\nother\n");
  EXPECT_EQ(installed(beta, "b2"), "b2: system-type beta 0.9 b2");
  EXPECT_EQ(installed(beta, "b1"), "b2: system-type beta 0.9 b1");  // the old release is kept

  // Locking creates an empty pointer, which is writable for the group, too.
  publish("platform 5", "r2 --platform other");
  const std::string locking =
      "umask 0; runenv-bootstrap --target other --lock-latest versions.bin; ";
  check("rm -r runenv/platform; " + locking + "stat -c %a runenv/platform/5/latest",
        "- 2/runenv/platform/5 [updating]\n660\n");
  EXPECT_EQ(installed("platform/5", "r2"), "r2: platform 5 r2 --platform other");
  write_file(item("platform/5/latest"), std::string("\0r1", 3));
  check(": >runenv/platform/5/latest; " + locking);
  EXPECT_EQ(bootstrap("--skip-platform").out, "");
  files::remove_all("runenv");
  EXPECT_EQ(bootstrap("--temp-cache a:b --skip-platform", "alpha=1.4").out,
            "- 2/runenv/system-types/alpha/1.4\n");
  EXPECT_EQ(installed("system-types/alpha/1.4", "a1"), "a1: system-type alpha 1.4 a1");
}

TEST_F(ServerTest, OnlyTheLocksStayOpen) {
  close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);  // descriptors inherited by this test
  // Tools have their three channels; 3 is the directory listed. This curl also counts the
  // descriptors of the bootstrapper, but only when that waits: before, it still has further ends of
  // the pipes.
  stand_in("curl",
           "ls /proc/self/fd | tr '\\n' ' ' >../log; until grep -q '^State:.S' /proc/$PPID/status; "
           "do :; done; ls /proc/$PPID/fd | wc -l >>../log; exec /usr/bin/curl $*");
  stand_in("tar", "ls /proc/self/fd | tr '\\n' ' ' >tar.log; exec /bin/tar \"$@\"");
  // At the last download of a run, the bootstrapper has three channels, two pipes to curl, and
  // locks. It releases the lock of an item that it has updated, and keeps the lock of one that was
  // up to date.
  const std::pair<std::string, std::string> kRuns[] = {
      {"--lock-latest", "0 1 2 3 6\n"}, {"", "0 1 2 3 5\n"}, {"--lock-latest", "0 1 2 3 8\n"}};
  for (const auto& [options, held] : kRuns) {
    EXPECT_EQ(bootstrap(options, "alpha=1.4 beta=0.9").status, 0);
    EXPECT_EQ(read_file("log"), held);
  }
  EXPECT_EQ(read_file("tar.log"), "0 1 2 3 ");
}

TEST_F(ServerTest, NoFileIsOpenedAsAClosedStandardDescriptor) {
  const std::string pointer = "runenv/system-types/alpha/1.4/latest";
  bootstrap();
  for (const std::string closed : {" <&-", " >&-", " 2>&-", " <&- >&- 2>&-"}) {
    const std::string log =
        closed.find(" >&-") != closed.npos ? "" : "- 2/runenv/system-types/alpha/1.4 [updating]\n";
    check("rm -rf runenv/system-types " + item("platform/6") +
              "; runenv-versions compose -o alpha.bin 5 alpha=1.4" + closed +
              " && runenv-bootstrap --lock-latest alpha.bin" + closed + " && cat " + pointer +
              "; rm " + pointer + "; runenv-bootstrap --target none --lock-latest alpha.bin" +
              closed + " || cat " + pointer +
              "; runenv-publish --quiet server/www platform 6 r1 --from content" + closed +
              " && cat " + item("platform/6/latest") + " runenv/platform/5/latest",
          log + "a1" + log + "r1\nr1", "", true);
  }
}
