// Signed releases from signing to installation: runenv-publish signs them with the real minisign, a
// real server serves them, and the bootstrapper unpacks them with runenv-verify instead of tar.
#include <algorithm>
#include <tuple>

#include "core/error.h"
#include "tests/program.h"
#include "tools/signature.h"

static const std::string kItem = "server/www/2/runenv/platform/5/";
static const std::string kArchive = kItem + "r2/linux-x64.tar.gz";

// Prints the member that carries the signature.
static const std::string member =
    "tail -c +$(($(tail -c 999 r2 | sed -n 's/^trusted.* bytes=//p') + 1)) r2";

// The machine has installed r1 with verification. The server also has r2, the latest release there.
class VerifyTest : public ServerTest {
 protected:
  VerifyTest() {
    stand_in("../verify/tar", "exec runenv-verify --keys keys --tar \"$@\"");
    stand_in("update", "PATH=$PWD/verify:$PATH exec runenv-bootstrap versions.bin");
    stand_in("sign",
             "exec runenv-publish server/www platform ${3-5} --from ${from-content} --as-is "
             "--replace --sign ${2-our}.key -- \"$1\"");
    // With this tar, runenv-publish accepts content that it would reject.
    stand_in("../blind/tar", "[ $1 = -t ] || exec /bin/tar \"$@\"");
    stand_in("forge", "tar -C content -czf evil . && PATH=$PWD/blind:$PATH from=evil exec sign $1");
    const Outcome made =
        run("mkdir keys && minisign -GW -p keys/our.pub -s our.key &&"
            " minisign -GW -p their.pub -s their.key && rm -r server/www/2 &&"
            " echo r1 >content/file && sign r1 && runenv-versions compose -o versions.bin 5 &&"
            " update && echo r2 >content/file && sign r2 && cp " +
            kArchive + " r2");
    EXPECT_EQ(made.status, 0) << made.err;
  }
  // Makes a change and updates the machine. undo() restores the state before.
  Outcome update_after(const std::string& change, bool as_ordinary = false) {
    run("mkdir saved && cp -a keys content runenv server/www saved && mv saved/www saved/w");
    run(change);
    return run((as_ordinary ? ordinary : "") + "exec $as update");
  }
  void undo() {
    run("chmod -R u+w content runenv; rm -rf keys content runenv server/www .update;"
        " mv saved/w server/www; mv saved/* .; rmdir saved");
  }
  std::string machine() {
    return run("find runenv -printf '%p %m %l\\n' -type f -exec cat {} + | sort").out;
  }
  // Publishes as r2 an archive that minisign has signed with these options.
  void sign_by_hand(const std::string& options) {
    const Outcome outcome = run(
        "/bin/tar -C content -czf bare . && bytes=$(stat -c %s bare) && comment='runenv archive: "
        "item=platform/5 release=r2 platform=linux-x64 time=2026-11-21T09:30:00Z bytes=' &&"
        " minisign -S -s our.key -m bare -x text " +
        options);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    write_file(kArchive, read_file("bare") + runenv::signature_member(read_file("text")));
  }
};

TEST_F(VerifyTest, OnlyWhatWasSignedForThePlaceIsUnpacked) {
  const std::tuple<std::string, std::string> kRows[] = {
      {"ln -s nowhere keys/policy", "keys/policy: cannot be read"},
      {"gzip -dc r2 | gzip >" + kArchive, "is not signed"},
      {"sign r2 their", ", which is not trusted here"},
      {"rm keys/our.pub", "keys: contains no key (*.pub), so nothing can be verified"},
      {"rm -r keys", "keys: No such file or directory"},
      {"echo >keys/b.pub", "keys/b.pub: is not a public key of minisign"},
      {"{ printf 'untrusted comment: %4020s\\n' x; sed -n 2p keys/our.pub | tr -d '\\n'; echo junk;"
       " } >keys/b.pub",
       "keys/b.pub: is not a public key of minisign"},
      {"ln -s /proc/self/mem keys/b.pub", "keys/b.pub: Input/output error"},
      {"mkdir keys/b.pub", "keys/b.pub: is not a regular file"},
      {"echo yes >keys/policy", "keys/policy: unknown policy 'yes'"},
      {"mkdir keys/policy", "keys/policy: cannot be read"},
      {"cp " + kItem + "r1/* " + kArchive,
       "for 'runenv/platform/5/r1', not as 'linux-x64.tar.gz' for 'runenv/platform/5/r2'"},
      {"sign r2 our 6 && cp server/www/2/runenv/platform/6/r2/* " + kArchive,
       "for 'runenv/platform/6/r2', not as 'linux-x64.tar.gz' for 'runenv/platform/5/r2'"},
      {"runenv-publish server/www platform 5 r2 --sign our.key --platform arm --from content && "
       "cp " +
           kItem + "r2/arm.tar.gz " + kArchive,
       "is signed as 'arm.tar.gz' for"},
      {"head -c -1 r2 >" + kArchive, "has a signature that is damaged or not at the end"},
      {"echo >>" + kArchive, "has a signature that is damaged or not at the end"},
      {member + " >>" + kArchive, "has more than one signature"},
      {"(head -c 20 r2; printf '\\1'; tail -c +22 r2) >" + kArchive, "was changed after key "},
      {"printf '\\037\\213\\010\\004\\0\\0\\0\\0\\0\\377' >" + kArchive, "is not signed"},
      {"echo up >up; tar -P -C content -czf evil ../up; PATH=$PWD/blind:$PATH from=evil sign r2",
       "could not be unpacked (tar: "},
      {"ln -s ../../../../up content/link; forge r2",
       "/r2/link: is a link that could lead out of the release, to '.."},
      {"mkdir content/d && ln -s x/../y content/d/l; forge r2", "/r2/d/l: is a link that could"},
      {"ln -s /etc/passwd content/link; forge r2",
       "is a link that could lead out of the release, to '/etc/passwd'"},
      {"mkfifo content/pipe; forge r2", "/r2/pipe: is neither a file nor a directory nor a link"},
  };
  const std::string before = machine();
  for (const auto& [attack, error] : kRows) {
    const Outcome outcome = update_after(attack);
    EXPECT_EQ(outcome.status, 1) << attack;
    EXPECT_NE(outcome.err.find("runenv-verify: "), std::string::npos) << attack;
    EXPECT_NE(outcome.err.find(error), std::string::npos) << attack << "\n" << outcome.err;
    EXPECT_NE(outcome.err.find("tar command failed\n"), std::string::npos) << attack;
    EXPECT_EQ(machine(), before) << attack;
    undo();
  }
}

TEST_F(VerifyTest, SignedReleasesReplaceTheirPlaceInOneStep) {
  const std::string staging = "'runenv/platform/5/.runenv-verify#unpacking'";
  const std::tuple<std::string, std::string, std::string> kRows[] = {
      {":", "cat r2/file", "r2\n"},
      {"mkdir -p runenv/platform/5/r2/old; echo old >runenv/platform/5/r2/file", "ls r2; cat r2/*",
       "file\nr2\n"},
      {"mkdir -p " + staging + "/r2/d; chmod 0 " + staging + "/r2/d", "cat r2/file", "r2\n"},
      {"mkdir -p content/d/e; ln -s ../../d/./e content/d/e/in; ln -s d/e/in content/on; sign r2",
       "ls r2/on/in/in", "in\n"},
      {"chmod 4755 content/file; chmod 555 content; tar -C content -czf a .; from=a sign r2",
       "stat -c %a r2 r2/file", "555\n755\n"},
      {"chmod 555 content; tar -C content -czf a .; from=a sign r2; mkdir -p"
       " runenv/platform/5/r2/d; chmod 555 runenv/platform/5/r2; echo no-rollback >keys/policy",
       "stat -c %a r2; ls -A r2", "555\n.runenv-signature\nfile\n"},
      {"runenv-publish server/www platform 5 r2 --sign our.key", "cat r2/file", "r2\n"},
  };
  for (const auto& [change, look, seen] : kRows) {
    // A directory without write permission stops only an ordinary user.
    const Outcome outcome = update_after(change, change.find("555 runenv") != std::string::npos);
    EXPECT_EQ(outcome.out, "- 2/runenv/platform/5 [updating]\n") << outcome.err;
    const Outcome result = run("cd runenv/platform/5 && " + look + " && ls -A && cat latest");
    EXPECT_EQ(result.out, seen + "latest\nr1\nr2\nr2") << change;
    undo();
  }
}

// Every changed byte is detected, in the content and in the signature.
TEST_F(VerifyTest, NoByteMayChange) {
  const std::string whole = read_file("r2");
  const size_t free = whole.find("untrusted comment: ") + 19, end = whole.find('\n', free);
  int files = 0;
  const auto write = [&](const std::string& bytes) {
    write_file("f/" + std::to_string(++files), bytes);
  };
  for (size_t i = 1; i < whole.size(); ++i) {
    std::string changed = whole;
    changed[i] = static_cast<char>(changed[i] ^ (i % 2 == 0 ? 1 : 0x80));
    if (i < free || i >= end) write(changed);
    write(whole.substr(0, i));
    write(whole.substr(0, i) + whole.substr(i / 2));
  }
  const Outcome outcome = run("runenv-verify --keys keys f/* r2 2>refused");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_TRUE(outcome.out.starts_with("r2: platform/5, release r2 for linux-x64, signed at 20"));
  EXPECT_EQ(run("wc -l <refused").out, std::to_string(files) + "\n");
  EXPECT_EQ(runenv::signature_member(std::string(65507, 'x')).size(), 65535U);
  EXPECT_THROW(runenv::signature_member(std::string(65508, 'x')), Error);
}

TEST_F(VerifyTest, UnpacksTheBytesThatItHasChecked) {
  run("mkdir e && echo evil >e/file && /bin/tar -C e -czf evil . && echo no-rollback >keys/policy "
      "&& rm runenv/platform/5/latest &&"
      " mkfifo runenv/platform/5/latest && mkdir runenv/platform/5/r2 && cp r2 linux-x64.tar.gz");
  const Run unpacking = start("verify/tar -x -f linux-x64.tar.gz -C runenv/platform/5/r2");
  // After it has checked everything, it opens the pointer, a fifo, and waits for a writer.
  run("exec 3>runenv/platform/5/latest; cat evil >linux-x64.tar.gz; echo r1 >&3");
  EXPECT_EQ(finish(unpacking).status, 0);
  EXPECT_EQ(local("platform/5/r2/file"), "r2\n");
}

TEST_F(VerifyTest, SignsAndVerifiesLikeMinisign) {
  const std::tuple<std::string, std::string> kRows[] = {
      {"-t \"$comment$bytes\"", ""},
      {"-t \"$comment$bytes\" -c \"$(head -c 900 /dev/zero | tr '\\0' x)\"", ""},
      {"-l -t \"$comment$bytes\"", "is signed in a minisign format that is not supported"},
      {"", "is not signed as a release, but as 'timestamp:"},
      {"-t \"${comment}9\"", "is not signed as a release, but as 'runenv archive: "},
      {"-t \"$comment$bytes \"", "is not signed as a release, but as 'runenv archive: "},
  };
  for (const auto& [options, error] : kRows) {
    sign_by_hand(options);
    const Outcome outcome = update_after(":");
    EXPECT_EQ(outcome.status, error == "" ? 0 : 1) << options << outcome.err;
    EXPECT_NE(outcome.err.find(error), std::string::npos) << outcome.err;
    undo();
  }
  const Outcome split =
      run("bytes=$(tail -c 999 r2 | sed -n 's/^trusted comment: .* bytes=//p'); head -c $bytes r2"
          " >content.gz; tail -c +$((bytes + 17)) r2 | head -c -12 >content.gz.minisig; minisign -Q"
          " -V -p keys/our.pub -m content.gz");
  EXPECT_TRUE(
      split.out.starts_with("runenv archive: item=platform/5 release=r2 platform=linux-x64"))
      << split.err;
}

TEST_F(VerifyTest, PolicyForbidsRollback) {
  run("echo '# as the guide says' >keys/policy; echo no-rollback >>keys/policy; sleep 1; sign r2;"
      " update; runenv-publish server/www platform 5 r1 --latest-only");
  EXPECT_TRUE(local("platform/5/r2/.runenv-signature").starts_with("untrusted comment: "));
  files::remove_all("runenv/platform/5/r1");
  Outcome outcome = update_after(":");
  EXPECT_NE(outcome.err.find(", before release 'r2', which is installed ("), std::string::npos)
      << outcome.err;
  undo();
  EXPECT_EQ(update_after("rm keys/policy").status, 0);
  undo();
  EXPECT_EQ(update_after("rm -r runenv").status, 0);
  undo();
  // The server can cause a directory of that name.
  EXPECT_EQ(
      update_after("cd runenv/platform/5/r2; rm .runenv-signature; mkdir .runenv-signature").status,
      0);
  undo();
  EXPECT_EQ(update_after("runenv-publish server/www platform 5 r1 --sign our.key").status, 0);
  undo();
  outcome = update_after("touch content/.runenv-signature; forge r1");
  EXPECT_NE(outcome.err.find("is in the archive, but only runenv-verify may create it"),
            std::string::npos)
      << outcome.err;
}

TEST_F(VerifyTest, SignedItemsStaySigned) {
  const std::string program = "runenv-publish server/www platform 5 ";
  const std::tuple<std::string, std::string> kRows[] = {
      {"r2 --sign our.key", ""},
      {"r2 --from content --replace --keep-latest", "release 'r2' is not signed for platform"},
      {"r3 --from content",
       "release 'r3' is not signed for platform 'linux-x64', while 'r2', the "
       "latest so far, is signed; sign it (--sign), or give --unsigned"},
      {"r3 --from content --keep-latest", ""},
      {"r3 --latest-only", "release 'r3' is not signed for platform"},
      {"r3 --sign our.key --platform arm", "release 'r3' has no archive for platform 'arm'"},
      {"r3 --from content --sign our.key --platform arm", "give --unsigned\n"},
      {"r3 --sign our.key", ""},
      {"r3 --latest-only", ""},
      {"r4 --from r2", "r4/linux-x64.tar.gz: would carry a signature for something else; --sign"},
      {"r4 --from r2 --sign our.key", ""},
      {"r4 --from r2 --sign no.key --replace", "no.key: could not sign (minisign: exit status"},
      {"r5 --from content --unsigned; mv " + kItem + "r5 gone", ""},
      {"r6 --from content --drop-platforms", "release 'r6' is not signed for platform 'linux-x64'"},
      {"r6 --from content --drop-platforms --unsigned", ""},
      {"r7 --from content", ""},
      {"r8 --from odd --keep-latest",
       "odd: has a signature that is damaged or not at the end; sign"},
      {"r8 --from twice --keep-latest --as-is",
       "twice: has more than one signature; sign it anew (--sign)"},
      {"r8 --from r2 --as-is --sign our.key --platform l; ln -s /etc content/l; " + program +
           "r9 --from content --as-is --sign our.key",
       "to '/etc': machines that verify signatures refuse it"},
      {"r7 --sign our.key --unsigned", "--sign and --unsigned exclude each other"},
      {"r7 --sign our.key --latest-only",
       "--latest-only allows only --drop-platforms, --unsigned and --quiet"},
      {"r7 --sign our.key --replace", "--sign without --from allows only --platform and --quiet"},
  };
  run("cp r2 odd; : | gzip >>odd; cp r2 twice; " + member + " >>twice");
  run(member + " >>" + kArchive);  // signed twice: the next signing repairs that
  for (const auto& [words, error] : kRows) {
    const Outcome outcome = run(program + words);
    EXPECT_EQ(outcome.status, error == "" ? 0 : 1) << words << outcome.err;
    EXPECT_NE(outcome.err.find(error), std::string::npos) << words << outcome.err;
  }
  EXPECT_EQ(run("runenv-verify --keys keys " + kItem + "r[234]/*").status, 0);
  stand_in("minisign", "touch " + kArchive + "; PATH=${PATH#*:}; exec minisign \"$@\"");
  EXPECT_NE(run(program + "r2 --sign our.key").err.find("r2/linux-x64.tar.gz: was replaced meanwh"),
            std::string::npos);
}

TEST_F(VerifyTest, CommandLine) {
  const std::string hint = "\nTry 'runenv-verify --help'.", program = "runenv-verify ",
                    words = "instead of tar, it accepts only -x -f ARCHIVE -C RELEASE";
  EXPECT_TRUE(run("runenv-verify --help").out.starts_with("usage: runenv-verify [--keys DIREC"));
  teller = "runenv-verify: ";
  const Row kRows[] = {
      {"", "", "an archive is needed" + hint},
      {"r2 --tar -x -f r2 -C r", "", "--tar cannot be combined with archives" + hint},
      {"--tar -x -f r2 -C", "", words + hint},
      {"--tar -x -C r -f r2", "", words + hint},
      {"--keys keys -- --tar", "", "--tar: No such file or directory"},
      {"--keys keys no", "", "no: No such file or directory"},
      {"--keys keys content", "", "content: is not a regular file"},
      {"--keys keys keys/our.pub", "", "keys/our.pub: is not signed"},
  };
  for (const auto& [arguments, out, error] : kRows) check(program + arguments, out, error);
  // Under the name tar, it accepts tar's arguments and uses the built-in keys.
  check(
      "d=runenv/platform/5; mkdir -p $d/r2 $d/.runenv-verify#unpacking; cp r2 linux-x64.tar.gz;"
      " flock $d/.runenv-verify#unpacking verify/tar -x -f linux-x64.tar.gz -C $d/r2",
      "", "runenv/platform/5/r2: another process is unpacking there");
  check("mkdir victim; verify/tar -x -f r2 -C victim 2>&-; rmdir victim", "");
  run("ln -s \"$(PATH=${PATH#*:}; command -v runenv-verify)\" tar");
  check("./tar --help", "", words + hint);
  EXPECT_NE(run("./tar -x -f r2 -C r").err.find("/keys: "), std::string::npos);
}
