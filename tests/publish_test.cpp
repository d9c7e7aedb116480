// runenv-publish as a producer runs it: the real tar, and the bootstrapper as the reader.
#include <fcntl.h>
#include <linux/close_range.h>

#include <tuple>
#include <vector>

#include "core/owner.h"
#include "tests/program.h"

static const std::string kItem = "server/www/2/runenv/platform/5/";
static const std::string kArchive = kItem + "r2/linux-x64.tar.gz";

// Words for strace that make a file system one without files that have no name, and one that has no
// links either.
static const std::string kNamed = "-P /proc/self/fd -e inject=access:error=ENOENT ";
static const std::string kLinkless = kNamed + "-P " + kArchive + " -e inject=linkat:error=EPERM ";

class PublishTest : public ServerTest {
 protected:
  PublishTest() {
    close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);  // of whoever has started the tests
    run("mkdir source && echo content >source/file && tar -C source -czf archive . &&"
        " ln -s archive alias && head -c -9 archive >short && (cat archive && echo) >long");
    teller = "runenv-publish: ";
    setenv("p", "runenv-publish --quiet server/www platform 5", 1);
  }

  // Publishes a release of the platform at 5.
  Outcome publish(const std::string& release, const std::string& options = "--from source") {
    setenv("RELEASE", release.c_str(), 1);
    return run("$p " + options + " -- \"$RELEASE\"");
  }
  // From here on, strace makes system calls of the program fail as the words say. Without words
  // none fails. Returns false where nothing can be traced.
  bool inject(const std::string& words) {
    files::remove("bin/runenv-publish");
    if (words == "") return true;
    // LeakSanitizer would have to trace it too.
    stand_in("runenv-publish", "ASAN_OPTIONS=detect_leaks=0 exec strace -D -qq -o /dev/null " +
                                   words +
                                   " \"$(PATH=${PATH#*:}; command -v runenv-publish)\" \"$@\"");
    return run("strace -o /dev/null true").status == 0;
  }
  std::string tree() { return run("find server/www | sort").out; }
  // Whether a file can do without a name until it is complete, which not all file systems know.
  static bool has_unnamed_files() {
    return runenv::unique_fd(open(".", O_TMPFILE | O_WRONLY, 0600)).get() >= 0;
  }
  static std::string latest() { return read_file(kItem + "latest"); }
};

TEST_F(PublishTest, ExactlyTheNamesThatTheBootstrapperTakesAsTheyAreAreAccepted) {
  std::vector<std::string> names = {"-r.:@~,;=+!$&'()*|^\"`<>\xc3\xa9"};
  for (const char c : std::string("\t\n\r\x7f #%?[]{}\\:&*\"~")) names.push_back({'a', c, 'b'});
  for (const std::string& release : names) {
    run("rm -rf runenv " + kItem);
    const bool accepted = publish(release).status == 0;
    if (!accepted) {
      files::create_directories(kItem + release);
      files::copy("archive", kItem + release + "/linux-x64.tar.gz");
      write_file(kItem + "latest", release + "\n");
    }
    bootstrap();
    EXPECT_EQ(accepted, local("platform/5/" + release + "/file") == "content\n") << release;
  }
}

TEST_F(PublishTest, TheBootstrapperInstallsWhatIsPublished) {
  const std::string publish_type = "runenv-publish --quiet server/www system-type a 1 ";
  for (const std::string source : {"source", "archive"}) {
    check("ulimit -n 11; TAR_OPTIONS=--exclude=file " + publish_type + source + " --from " +
          source + " --platform '-p:;,'");
    EXPECT_EQ(bootstrap("--target '-p:;,' --skip-platform", "a=1").status, 0);
    EXPECT_EQ(local("system-types/a/1/" + source + "/file"), "content\n");
  }
}

TEST_F(PublishTest, WhatCannotBePublishedChangesNothing) {
  files::create_symlink("loop", kItem + "loop");
  write_file(kItem + "e\x1b/a\x1b.tar.gz", "");
  const std::string
      from = " --from source",
      put = "$p r --from ", name(256, 'n'), program = "runenv-publish --quiet server/www ",
      nowhere = "p=$(command -v runenv-publish); PATH=/nowhere; \"$p\" server/www platform 5 ",
      special = ", which is a special character for clients or servers",
      no_archive = "is not a .tar.gz archive with files that tar can read (tar: exit status 2)",
      item = kItem.substr(0, kItem.size() - 1), latest_file = kItem + "latest",
      uuid = "/proc/sys/kernel/random/uuid",
      alone = "--latest-only allows only --drop-platforms, --unsigned and --quiet";
  // As an ordinary user who may not list the directory.
  const auto unlisted = [&](const std::string& path) {
    return ordinary + "trap 'chmod 755 " + path + "' EXIT; chmod 300 " + path + "; $as ";
  };
  // With something else in the place of the pointer.
  const auto pointing = [&](const std::string& put_there) {
    return "mv " + latest_file + " kept; trap 'mv -T kept " + latest_file + "' EXIT; " + put_there +
           " " + latest_file + "; timeout 60 $p r2" + from;
  };
  const auto lacks = [](const std::string& missing, const std::string& latest) {
    return "release 'r2' lacks an archive for platform '" + missing + "', which '" + latest +
           "', the latest so far, has; move the pointer when all are there "
           "(--keep-latest until then), or give --drop-platforms";
  };
  const std::pair<std::string, std::string> kRows[] = {
      {"$p ''" + from, "release is empty"},
      {"$p ." + from, "release '.' names another directory"},
      {program + "platform .. r" + from, "version '..' names another directory"},
      {program + "system-type /a 1 r" + from, "system type '/a' contains '/'" + special},
      {"$p 'a\nb'" + from, "release 'a\\x0ab' contains '\\x0a'" + special},
      {"$p latest" + from, "a release cannot be called latest: the pointer has this name"},
      {"$p " + name + " --latest-only", "release '" + name + "' is longer than 255 bytes"},
      {put + "source --platform " + name, "platform '" + name + "' is longer than 248 bytes"},
      {put + "short", "short: " + no_archive},
      {put + "long", "long: " + no_archive},
      {"(false | gzip) >empty; " + put + "empty", "empty: " + no_archive},
      {"head -c 9999 /dev/urandom >data; tar -czf big data; ulimit -f 8; " + put + "big",
       "big: could not be copied: File too large"},
      {put + uuid, uuid + ": differs from its copy"},
      {put + "server", "server: contains the tree, which would become part of the release"},
      {put + "none", "none: No such file or directory"},
      {put + "/dev/null", "/dev/null: is neither a directory nor a regular file"},
      {"runenv-publish none platform 5 r" + from, "none: No such file or directory"},
      {"runenv-publish data platform 5 r" + from, "data: Not a directory"},
      {nowhere + "r1" + from, kItem + "r1/linux-x64.tar.gz: is published already; --replace "
                                      "replaces it, --latest-only moves the pointer to it"},
      {"$p loop --latest-only", kItem + "loop: Too many levels of symbolic links"},
      {unlisted(item) + put + "source", item + ": Permission denied"},
      {unlisted(item + "/r1") + "$p r1 --latest-only", item + "/r1: Permission denied"},
      {pointing("ln -s /proc/self/mem"),
       "Unable to open '" + latest_file + "' for reading: Input/output error"},
      {pointing("mkfifo"), latest_file + ": is not a regular file"},
      {put + "archive --list", "archive: is an archive, but --list needs a directory"},
      {"mkfifo source/f; trap 'rm source/f' EXIT; " + put + "source --list",
       "source: 'f' is neither a file nor a directory nor a link"},
      {"touch source/.runenv-files; trap 'rm source/.*-files' EXIT; " + put + "source --list",
       "source: has a list of files, .runenv-files, already: remove it"},
      {"$p r2 --latest-only", "release 'r2' has no archive"},
      {"$p r2 --platform other" + from, lacks("linux-x64", "r1")},
      {pointing("printf 'e\\033' >"), lacks("a\\x1b", "e\\x1b")},
      {nowhere + "r" + from, "tar: No such file or directory"},
      {"mkdir bin; printf 'kill -9 $$' >bin/tar; chmod +x bin/tar; " + put + "source",
       "source: could not be packed (tar: Killed)"},
      {"printf '[ $1 != -c ] && exec /bin/tar \"$@\"; echo junk' >bin/tar; " + put + "source",
       "source: " + no_archive},
      {"printf '[ $1 != -c ] || touch source/new; exec /bin/tar \"$@\"' >bin/tar; " + put +
           "source; status=$?; rm source/new; exit $status",
       "source: changed while it was packed"},
      {"printf '[ $1 != -c ] || touch source/file; exec /bin/tar \"$@\"' >bin/tar; " + put +
           "source --list; status=$?; rm bin/tar; exit $status",
       "source: changed while it was packed"},
      // From here on a hint follows.
      {"runenv-publish", "a tree is needed, the directory that the server serves"},
      {program, "the kind of item is needed, platform or system-type"},
      {program + "type", "unknown kind of item 'type'"},
      {"$p --from a", "platform takes a version and a release"},
      {program + "system-type a 1", "system-type takes a name, a version and a release"},
      {"$p r", "--from is needed, or --latest-only"},
      {"$p r --replace=x", "unknown option '--replace=x'"},
      {"$p r --latest-only --list", "--list needs --from"},
      {"$p r --latest-only --from a", alone},
      {"$p r --latest-only --keep-latest", alone},
      {"$p r --latest-only --as-is", "--as-is and --compress have no effect without --from"},
      {put + "archive --compress cat", "--compress needs a directory, but 'archive' is an archive"},
      {put + "a --keep-latest --drop-platforms",
       "--drop-platforms has no effect with --keep-latest"},
  };
  const auto before = tree();
  std::string hint;
  for (const auto& [command, error] : kRows) {
    if (command == "runenv-publish") hint = "\nTry 'runenv-publish --help'.";
    check(command, "", error + hint, true);
    EXPECT_EQ(tree() + latest(), before + "r1\n") << command;
  }
}

TEST_F(PublishTest, WhatIsHardlyMeantIsRefusedInDirectoriesAndArchives) {
  const std::string
      kUnreadable =
          "cannot be read by others: on a client, only the user who updates could use "
          "it; permit it (chmod a+rX)",
      kSetId =
          "is a set-user-ID or set-group-ID file: everybody on a client that root "
          "updates could run it as root; clear these bits (chmod ug-s)",
      kLocked =
          "cannot be written by its owner: a client of an ordinary user could not unpack the "
          "release again, as after a rollback; permit it (chmod u+w)",
      kAround =
          "is a directory around everything: a client would find the files in it, "
          "one level down; publish what is in it",
      kKind = "is neither a file nor a directory nor a link",
      kMade = "is a file that only runenv-verify may create: remove it";
  const auto leads_to = [](const std::string& target) {
    return "is a link that could lead out of the release, to '" + target +
           "': a client would find its own file there, or none; link to something in the release";
  };
  const struct {
    std::string made, name, why;  // by this script, in a directory with a file and a directory
  } kRows[] = {
      {"touch d/f; chmod 640 d/f", "d/f", kUnreadable},
      {"chmod 754 d", "d", kUnreadable},
      {"chmod 555 d", "d", kLocked},
      {"touch f; chmod 4755 f", "f", kSetId},
      {"touch f; chmod 2745 f", "f", kSetId},
      {R"(ln -s /etc/a 'l -> "k"')", R"(l -> "k")", leads_to("/etc/a")},
      {R"(ln -s ../../a $'d/\\\n\t\e\302\233\303\233')", "d/\\\\x0a\\x09\\x1b\\xc2\\x9b\303\233",
       leads_to("../../a")},
      {"ln -s a/../../x d/l", "d/l", leads_to("a/../../x")},
      {"rm keep", "d", kAround},
      {"mkfifo f", "f", kKind},
      {"touch .runenv-signature d/.runenv-signature", ".runenv-signature", kMade},
      {R"(ln -s ../keep d/l; ln keep d/h; mkdir e; chmod 3777 e; touch $'a\tb"')", "", ""},
  };
  for (const auto& [made, name, why] : kRows) {
    SCOPED_TRACE(made);
    write_file("make", made);
    run("rm -rf source; mkdir -p source/d; cd source; touch keep; bash ../make");
    const bool always = why == kKind || why == kMade;
    for (const std::string from : {"source", "archive"}) {
      const std::string put = "$p r2 --replace --from " + from, error = from + ": '" + name + "' ";
      check(put, "", why == "" ? "" : error + why + (always ? "" : ", or give --as-is"));
      check(put + " --as-is", "", always ? error + why : "");
      run("tar -C source -czf archive .");
    }
  }
  const std::string outside = "' has a name or target outside the release",
                    unknown = "', which is not in the archive before it: no client could unpack it",
                    both = "' is both a directory and something else: remove one of the entries",
                    unmade = "' has a name or target that is not valid: no client could unpack it",
                    name(256, 'n'), path = "d" + std::string(5000, '/') + "d";
  const auto as = [](const std::string& renamed, const std::string& flags = "rh") {
    return "ln keep k; ln -s keep l; tar -czP --transform='flags=" + flags + ";s,^keep," + renamed +
           ",' keep k l";
  };
  const std::pair<std::string, std::string> kArchives[] = {
      {as("a/../b"), "'a/../b" + outside},
      {as("/b"), "'/b" + outside},
      {as(".."), "'.." + outside},
      {as("a/../b", "h"), "'k" + outside},
      {as("a", "h"), "'k' is a hard link to 'a" + unknown},
      {as(".", "h"), "'k' is a hard link to '." + unknown},
      {as("k/x"), "'k" + both},
      {as("d") + " d", "'d" + both},
      {as("."), "'." + both},
      {as("e/."), "'e/." + unmade},
      {as(name), "'" + name + unmade},
      {as(path), "'" + path + unmade},
      {as(path, "s"), "'l" + unmade},
      {as("", "s"), "'l" + unmade},
      {"tar -cf a d; gzip -nc a >z; printf 'PK\\3\\4\\24\\0\\0\\0\\10\\0\\0\\0\\0\\0';"
       " tail -c 8 z | head -c 4; printf '\\0\\0\\0\\0'; tail -c 4 z; printf '\\0\\0\\0\\0';"
       " tail -c +11 z",  // a zip
       "is not in gzip's format, which clients expect"},
  };
  for (const auto& [made, why] : kArchives) {
    check("rm -rf source; mkdir -p source/d; cd source; touch keep; { " + made +
              "; } >../archive; cd ..; $p r2 --replace --as-is --from archive",
          "", "archive: " + why);
  }
}

// A producer reads how it goes on, and where things are afterwards.
TEST_F(PublishTest, ItTellsWhatIsWhereAndHowFarItIs) {
  const std::string loud = "runenv-publish server/www platform 5 ", path = "2/runenv/platform/5",
                    archive = "/linux-x64.tar.gz (136 B); ";
  run("rm -r " + kItem + "; touch -d @0 source/file source; cp -a source server/w");
  check(loud + "r1 --from server/w --keep-latest", path + "/r1" + archive + "no latest yet\n");
  for (int i = 0; i < 2; ++i) check(loud + "r1 --latest-only", path + "; latest is r1\n");
  check(loud + "r2 --from source", path + "/r2" + archive + "latest is r2, was r1\n");
  // Where the pointer leads nowhere, nobody knows what it led to.
  check("rm -r " + kItem + "r2; " + loud + "r1 --latest-only", "",
        "'r2', the latest so far, has no archive any more, so nobody knows which platforms it had; "
        "if release 'r1' has them all, give --drop-platforms");
  check("exec >/dev/full; " + loud + "r1 --latest-only --drop-platforms", "",
        "standard output: No space left on device; all else is done");
  check("cat " + kItem + "latest", "r1\n");
  check("runenv-publish server/www platform 5 r3 --compress 'gzip -1' --from source | wc -l",
        "1\n");
  // Threads make no difference.
  check(
      "command -v pigz >out || exit 0; mkdir d; seq 99999 >d/f; for n in 1 7; do $p p$n --compress"
      " \"pigz -n -p $n\" --from d; done; cmp server/www/2/runenv/platform/5/p[17]/*");
  check("$p r4 --compress nowhere --from source", "",
        "source: could not be packed (tar: exit status 2)", true);
  check("$p r4 --compress cat --from source", "",
        "source: is not a .tar.gz archive with files that tar can read (tar: exit status 2)", true);
  // A slow tar, on a terminal and not. It lists slowly, but never stops for long.
  stand_in("tar", R"([ $1 = -c ] && sleep 0.5 || head -c 68 >/dev/null
    for i in 1 2 3 4 5 6; do [ $1 = -c ] || { echo '---------- 0/0 0 "x"'; sleep 0.1; }; done
    exec /bin/tar "$@" </dev/stdin)");
  check("$p r5 --as-is --from source 2>&1");
  const Outcome shown = run("script -qec '$p r6 --as-is --from source' /dev/null");
  EXPECT_NE(shown.out.find("\rpacking: 8 B of 8 B, "), std::string::npos) << shown.out;
  EXPECT_NE(shown.out.find("\rchecking: 68 B of 136 B, "), std::string::npos) << shown.out;
  if (inject("-e inject=pidfd_open:error=ENOSYS")) {
    EXPECT_EQ(run("timeout 60 script -qec '$p r7 --as-is --from source' /dev/null").status, 0);
    inject("");
  }
  EXPECT_TRUE(shown.out.ends_with("\r\033[K")) << shown.out;
}

TEST_F(PublishTest, ASystemCallThatFailsIsToldAndUndone) {
  if (!has_unnamed_files() || !inject(kNamed)) GTEST_SKIP() << "other calls, or no strace";
  inject("");
  const std::string pointer = kItem + "latest", release = kItem + "r2",
                    item = kItem.substr(0, kItem.size() - 1), failed = ": Input/output error",
                    in_place = ": is in place, but its directory could not be stored" + failed,
                    later = "; the archive is in place: --latest-only moves the pointer";
  const struct {
    std::string words, error, source = "source";
  } kRows[] = {
      {"access:error=EIO:when=4", "/proc/self/fd/3" + failed},
      {"fsync:error=EIO:when=1", kArchive + failed},
      {"pread64:error=EIO:when=20+", kArchive + failed, "big"},
      {"read:error=EIO:when=3 -P " + directory + "/archive", "archive" + failed, "archive"},
      {"mkdir:error=EIO:when=2", release + failed},
      {"mkdir:error=EEXIST:when=2", release + ": No such file or directory"},  // it is gone again
      {"fsync:error=EIO:when=2", item + failed},
      {"fchmod:error=EIO:when=2", kArchive + failed},
      {"fsync:error=EIO:when=3", kArchive + failed},
      {"linkat:error=EIO:when=1", kArchive + failed},
      {"fsync:error=EIO:when=4", kArchive + in_place},
      {"write:error=EIO:when=2", pointer + failed + later},
      {"write:retval=1:when=2", pointer + ": differs from what was written" + later},
      {"fsync:error=EIO:when=5", pointer + failed + later},
      {"fsync:error=EIO:when=6", pointer + failed + later},
      {"linkat:error=EIO:when=3", pointer + failed + later},
      {"rename:error=EIO", pointer + failed + later},
      {"fsync:error=EIO:when=7", pointer + in_place + later},
      {"fsync:error=EIO:when=8", ""},
      {"linkat:error=EEXIST:when=3", ""},  // the temporary name was taken
      {"write:error=EINTR:when=2", ""},
      {"utimensat:error=EIO", directory + "/runenv-publish.XXXXXX" + failed},
      {"pread64:error=EINTR:when=20", "", "big"},
      {"flock:error=EINTR:when=1", ""},
      {"flock:error=ENOLCK", ""},
      {"fsync:error=EINVAL", ""},
  };
  const std::string before = tree();
  run("head -c 999999 /dev/urandom >data; tar -czf big data");
  for (const auto& row : kRows) {
    inject("-e inject=" + row.words);
    check("TMPDIR=$PWD $p r2 --from " + row.source, "", row.error);
    const bool unchanged = row.error != "" && row.error.find("in place") == row.error.npos,
               moved = row.error == "" || row.error.starts_with(pointer + in_place);
    EXPECT_EQ(tree() == before, unchanged) << row.words << "\n" << tree();
    EXPECT_EQ(latest(), moved ? "r2\n" : "r1\n") << row.words;
    run("rm -r " + release + "; echo r1 >" + pointer);
  }
  inject("-e inject=write:error=EIO:when=1");
  check("$p r1 --latest-only", "", pointer + failed);
  // A write may take a part. Here it only says that it took the first ten bytes.
  check(
      "ASAN_OPTIONS=detect_leaks=0 strace -o /dev/null -e inject=write:retval=10:when=1"
      " runenv-versions compose 5 -o part; runenv-versions compose 5 -o whole;"
      " tail -c +11 whole | cmp - part");
}

TEST_F(PublishTest, ThePointerMovesWhenAllPlatformsAreThere) {
  const std::tuple<std::string, std::string, std::string, int> kSteps[] = {
      {"r1", "--from source --platform a --keep-latest", "", 0},
      {"r1", "--from alias --platform .b", "r1\n", 0},
      {"r2", "--from source --platform a --keep-latest", "r1\n", 0},
      {"r2", "--latest-only", "r1\n", 1},
      {"r2", "--latest-only --drop-platforms", "r2\n", 0},
      {"r1", "--latest-only", "r1\n", 0},
      {"r2", "--from archive --platform .b", "r2\n", 0},
      {"r2", "--from archive --platform .b --replace", "r2\n", 0},
  };
  // Only archives make a platform.
  run("rm -r " + kItem + "; mkdir -p source/.d " + kItem + "r1/dir.tar.gz; touch " + kItem +
      "r1/stray; cd source/.d; for f in c b a; do touch $f; done; chown 1:1 b");
  for (const auto& [release, options, latest_release, status] : kSteps) {
    EXPECT_EQ(publish(release, options).status, status);
    EXPECT_EQ(latest(), latest_release);
  }
  EXPECT_EQ(read_file(kItem + "r2/.b.tar.gz"), read_file("archive"));
  // The same files make the same archive, with a list too.
  check(
      "chmod -R u=rwX,go=rX source; chmod 700 source; find source -exec touch -d @0 {} +; mkdir t;"
      " for r in l m; do TMPDIR=$PWD/t $p $r --from source --list --keep-latest; done; rmdir t; "
      "cd " +
          kItem + "; cmp [lm]/*; tar --utc -tvf l/* | sed 's/ *[0-9]* 1970-01-01 00:00//'",
      "drwxr-xr-x 0/0 ./\ndrwxr-xr-x 0/0 ./.d/\n-rw-r--r-- 0/0 ./.d/a\n-rw-r--r-- 0/0 ./.d/b\n"
      "-rw-r--r-- 0/0 ./.d/c\n-rw-r--r-- 0/0 ./file\n-rw-r--r-- 0/0 ./.runenv-files\n");
  // Who reads the pointer meanwhile has the old one whole.
  check("exec 7<" + kItem + "latest; $p r1 --latest-only; cat - " + kItem + "latest <&7",
        "r2\nr1\n");
  check(
      "echo r >open; chmod 666 open; cd server/www/2; mkdir -m 750 runenv/platform/6; ln -s"
      " $OLDPWD/open runenv/platform/6/latest; ln -s .. tree; umask 777; runenv-publish --quiet"
      " tree platform 6 r --from $OLDPWD/source && find runenv/platform/6 -printf '%m %P\n' | sort",
      "644 latest\n644 r/linux-x64.tar.gz\n750 \n755 r\n");
}

TEST_F(PublishTest, WhatAnotherPublisherDoesMeanwhileCounts) {
  const struct {
    std::string other, error, latest;
  } kRows[] = {
      {"r2 --platform b --drop-platforms", "", "r2\n"},
      {"r2", "linux-x64.tar.gz: is published already;", "r2\n"},
      {"r3", "the pointer was moved to 'r3' meanwhile; the archive is in place:", "r3\n"},
      {"r0 --keep-latest --from source; rm " + kItem + "latest; :", "", "r2\n"},
      {"r1 --platform b --keep-latest", "lacks an archive for platform 'b'", "r1\n"},
  };
  for (const std::string& file_system : {std::string(), kNamed, kLinkless}) {
    for (const auto& row : kRows) {
      run("rm -rf bin " + kItem);
      EXPECT_EQ(publish("r1").status, 0);
      stand_in("tar", "[ $1 != -c ] || (PATH=${PATH#*:} && $p " + row.other +
                          " --from source); exec /bin/tar \"$@\"");
      if (!inject(file_system)) continue;
      const Outcome outcome = publish("r2");
      EXPECT_EQ(outcome.status, row.error == "" ? 0 : 1);
      EXPECT_NE(outcome.err.find(row.error), std::string::npos) << outcome.err;
      EXPECT_EQ(latest() + run("find server/www -name '.*'").out, row.latest);
    }
  }
  check("cd " + kItem +
            "; exec 9<.; flock -s 9; timeout 60 runenv-publish --quiet ../../../.. platform 5 r2"
            " --latest-only --drop-platforms 9<&- &"
            " sleep 0.2; cat latest; exec 9<&-; wait; cat latest",
        "r1\nr2\n", "", true);
}

TEST_F(PublishTest, InterruptedItLeavesTheTreeAsItWas) {
  const std::string before = tree();
  files::create_directory("temporary");
  setenv("TMPDIR", (directory + "/temporary").c_str(), 1);
  for (const std::string& file_system : {std::string(), kNamed}) {
    if (!inject(file_system)) continue;
    const bool unnamed = file_system == "" && has_unnamed_files();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGKILL}) {
      // ls, like tar, has its channels.
      stand_in("tar",
               "find server/www | sort >seen; ls /proc/self/fd >held; echo half; echo $$ >tool;"
               " kill -" +
                   std::to_string(signal) + " $PPID; exec sleep 20");
      EXPECT_EQ(run("exec $p r2 --from source --list").status, -signal);
      EXPECT_EQ(run("rm temporary/*").status == 0, signal == SIGKILL);
      EXPECT_EQ(read_file("seen") == before, unnamed);
      EXPECT_EQ(read_file("held"), "0\n1\n2\n3\n");
      const std::string tool = "/proc/" + std::to_string(std::stoi(read_file("tool"))) + "/exe";
      for (int i = 0; i < 10000 && signal == SIGKILL && files::exists(tool); ++i) usleep(1000);
      EXPECT_FALSE(files::exists(tool));
      EXPECT_EQ(latest(), "r1\n");
      EXPECT_EQ(tree() == before, unnamed || signal != SIGKILL) << tree();
    }
    // What the last one left behind is taken for no archive.
    EXPECT_EQ(publish("r2", "--latest-only").status, 1);
    EXPECT_EQ(run("rm " + kItem + ".runenv-publish#??????").status == 0, !unnamed);
  }
  // A signal between the steps that put an archive into its place waits for the last.
  if (inject("-e inject=mkdir:signal=TERM:when=2")) {
    files::remove("bin/tar");
    EXPECT_EQ(run("exec $p r3 --from source").status, -SIGTERM);
    EXPECT_TRUE(files::exists(kItem + "r3/linux-x64.tar.gz"));
  }
  inject("");
  // So it does while another publisher has the lock.
  EXPECT_EQ(run("exec 9<" + kItem + "; flock 9; exec timeout -k 5 1 $p r4 --from source").status,
            124);
  stand_in("tar", "kill -INT $PPID; kill -HUP $PPID; exec /bin/tar \"$@\"");
  check("trap '' INT HUP; $p r2 --from source; cat " + kItem + "latest", "r2\n");
}
