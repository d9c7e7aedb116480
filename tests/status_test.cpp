// runenv-status on every kind of damage, for people and for programs, and beside the server.
#include <tuple>

#include "tests/program.h"
#include "tools/size_text.h"

class StatusTest : public ServerTest {
 protected:
  StatusTest() {
    teller = "runenv-status: ";
    // Sizes and times depend on the machine.
    stand_in("status",
             "runenv-status \"$@\" versions.bin >said; status=$?; sed -E 's/[0-9.]+ k?B\\>/N/;"
             " s/[0-9-]{10} [0-9:]{5}/WHEN/; s/ +/ /g; s/ $//' said; exit $status");
    bootstrap("", "alpha=1.4 beta=0.9");
  }
};

// Each row: what is done to the machine, the status, the item's state, and what is printed of it.
TEST_F(StatusTest, TellsEveryState) {
  const std::string item = "runenv/platform/5", latest = item + "/latest",
                    other = "\nother release: " + item + "/r1 (N)";
  const std::tuple<std::string, int, std::string, std::string> kRows[] = {
      {":", 0, "installed", "r1 WHEN N"},
      {"rm -r " + item, 1, "not installed", ""},
      {"rm " + latest, 1, "not installed", other},
      {": >" + latest, 2, "broken", "latest is empty" + other},
      {"rm -r " + item + "/r1", 2, "broken", "latest names 'r1', which is not there"},
      {"printf '../5' >" + latest, 2, "broken",
       "latest names '../5', which is not a release" + other},
      {"truncate -s 2M " + latest, 2, "broken", "latest is too large" + other},
      {"rm -r " + item + "; touch " + item, 2, "broken", item + ": is not a directory"},
      {"printf '\\033\\302\\233' >" + latest, 2, "broken",
       "latest names '\\x1b\\xc2\\x9b', which is not there" + other},
      {"ln -sf r1/file " + latest, 2, "broken", "latest is not a file" + other},
      {"rm " + latest + "; mkfifo " + latest, 2, "broken", "latest is not a file" + other},
      {"mv " + item + " x; ln -s ../../x " + item, 2, "broken",
       item + ": is behind a symbolic link"},
      {"mkdir -p " + item + "/{r0,q,o#p,.runenv-verify#unpacking}; touch " + item + "/q/latest", 0,
       "installed",
       "r1 WHEN N\nother release: " + item + "/r0 (N)\nleftover: " + item +
           "/.runenv-verify#unpacking (N)"},
      {"mkdir -p runenv/{platform/4,{platform,system-types/alpha}/.runenv-prune#removing} .update;"
       " touch .update/latest",
       0, "installed",
       "r1 WHEN N\nitem not in the document: runenv/platform/4 (N)\n"
       "leftover: runenv/platform/.runenv-prune#removing (N)\n"
       "leftover: runenv/system-types/alpha/.runenv-prune#removing (N)\n"
       "leftover: .update/latest (N)"},
  };
  const std::string others =
      "\nsystem-types/alpha/1.4 installed a1 WHEN N\n"
      "system-types/beta/0.9 installed b1 WHEN N";
  run("cp -a runenv whole");
  for (auto [damage, status, state, told] : kRows) {
    run("bash -c \"" + damage + "\"");
    const size_t besides = std::min(told.find('\n'), told.size());
    std::string row = "platform/5 " + state + (besides == 0 ? "" : " ") + told.substr(0, besides);
    const Outcome outcome = run("status");
    EXPECT_EQ(outcome.status, status) << damage;
    EXPECT_EQ(outcome.out, "ITEM STATE RELEASE SINCE SIZE\n" + row + others + told.substr(besides) +
                               "\n3 items, " + (state == "installed" ? "3" : "2") + " installed" +
                               (state == "installed" ? "" : ", 1 " + state) + "\n")
        << damage;
    EXPECT_EQ(run("runenv-status --json versions.bin | jq -r '.status, .items[0].state, "
                  "(.items | length)' | paste -sd ' '")
                  .out,
              std::to_string(status) + " " + state + " 3\n");
    EXPECT_EQ(run("cd bin; runenv-status --quiet --directory .. ../versions.bin").status, status);
    run("rm -rf runenv .update x; cp -a whole runenv");
  }
}

// Each row: what is done to the files of a release, and what is said of them. Whatever is not there
// as it was published is broken; of what cannot be read nothing is known.
TEST_F(StatusTest, VerifiesFiles) {
  const std::string place = "runenv/platform/5/r2", denied = "Permission denied",
                    other = "PATH=${PATH#*:} exec sha256sum \"$@\"";
  const auto of = [&](const std::string& kind, const std::string& path, const std::string& detail) {
    return kind + ": " + place + (path == "" ? "" : "/") + path +
           (detail == "" ? "" : " (" + detail + ")") + "\n";
  };
  const auto list = [&](const std::string& what) { return of("changed", ".runenv-files", what); };
  const auto edit = [](const std::string& script) {
    return "sed -i '" + script + "' .runenv-files";
  };
  const std::tuple<std::string, int, std::string> kRows[] = {
      {":", 0, ""},
      {":", 0, ""},
      {"touch .runenv-signature; chmod g+s .", 0, ""},
      {"rm -r bin; chmod 500 .", 2,
       of("changed", "", "mode N for N") + of("missing", "bin", "") + of("missing", "bin/x", "")},
      {"chmod 777 bin/x; echo 2 >>bin/x", 2, of("changed", "bin/x", "mode N for N, content")},
      {"chmod u+s many/7; echo >>many/120", 2,
       of("changed", "many/120", "content") + of("changed", "many/7", "mode 4N for N")},
      {"ln -sfn ../../../.. link; mkfifo f; touch 'new\033'", 2,
       of("changed", "link", "target '../../../..'") + of("extra", "f", "") +
           of("extra", "new\\x1b", "")},
      {"rm -f bin/x; mkfifo bin/x", 2, of("changed", "bin/x", "type")},
      {"mv bin ../../../bin; ln -s ../../../bin bin", 2,
       of("changed", "bin", "type") + of("missing", "bin/x", "")},
      {"chmod 0 many/z", 2,
       of("unread", "many/z", denied) + of("changed", "many/z", "mode 0 for N")},
      {"chmod 400 bin", 2, of("unread", "bin/x", denied) + of("changed", "bin", "mode N for N")},
      {"chmod a-r .", 3, place + ": its directory: " + denied + "\n"},
      {"rm .runenv-files", 3, place + ": has no list of its files\n"},
      {"chmod 0 .runenv-files", 3, place + ": .runenv-files: " + denied + "\n"},
      {"echo 'cd " + place + "/many; echo >>1; rm -f 9; mkfifo 9; " + other +
           "' >$OLDPWD/bin/sha256sum",
       3,
       of("unread", "many/1", "changed while it was read") +
           of("unread", "many/9", "changed while it was read")},
      {"echo 'PATH=${PATH#*:}; sha256sum \"$@\" | sed 2d; exit 1' >$OLDPWD/bin/sha256sum", 3,
       of("unread", "many/1", "could not be read by sha256sum") +
           of("unread", "many/81", "could not be read by sha256sum")},
      {"echo 'exit 1' >$OLDPWD/bin/sha256sum", 3,
       place + ": a release's files: could not be read (sha256sum: exit status 1)\n"},
      {"rm .runenv-files; mkfifo .runenv-files", 2, list("is not a file")},
      {"ln -sf bin/x .runenv-files", 2, list("is not a file")},
      {"truncate -s 2G .runenv-files", 2, list("is too large")},
      {edit("99q"), 2, list(".runenv-files: is cut off")},
      {edit("1s/1/2/"), 2, list(".runenv-files: is not a list of version 1")},
      {edit("3s/ [.]$/ a\\\\n/"), 2, list(".runenv-files: line 3 is not an entry")},
  };
  const std::string as = getuid() == 0 ? "setpriv --reuid 65534 --clear-groups " : "";
  run("mkdir -p source/bin source/many/z; cd source; echo 1 | tee bin/x >many/z/y; chmod 555 bin/x;"
      " chmod 700 .; ln -s bin link; for i in $(seq 120); do echo $i >many/$i; done; mkdir -- "
      "\"$(printf -- '-\\n\\\\ \\377')\";"
      " runenv-publish ../server/www platform 5 r2 --from . --list");
  run("runenv-versions compose -o versions.bin 5; rm -r runenv; mkdir 022 077; " + ordinary +
      "for umask in 022 077; do cd $umask; umask $umask; " + as +
      "runenv-bootstrap ../versions.bin; cd ..; done");
  stand_in("verify", as + "timeout 60 runenv-status --verify versions.bin >said; status=$?;"
                          " sed -nE '/^[^:]*: /{s/ (4?)[0-7]{3} for [0-7]{3}/ \\1N for N/;"
                          " s/ for [0-7]{3}/ for N/; p}' said; exit $status");
  size_t row = 0;
  for (const auto& [damage, status, told] : kRows) {
    const std::string umask = row++ % 2 == 0 ? "022" : "077";
    stand_in("sha256sum", other);
    write_file("damage", "cd " + place + "; " + damage);
    run("chmod -R u+rwx runenv; rm -rf runenv; " + as + "cp -a " + umask + "/runenv . && " + as +
        "sh damage");
    const Outcome outcome = run("verify");
    EXPECT_EQ(outcome.out, told) << umask << " " << damage << outcome.err;
    EXPECT_EQ(outcome.status, status) << damage;
  }
  run("rm -r runenv; cp -a 022/runenv .; cd " + place + "; rm many/1; touch $(printf '\\377')");
  check(
      "cd bin; runenv-status --verify --json --directory .. ../versions.bin | jq -c '.items[0] | "
      ".state, .problem, "
      ".differences' ",
      R"("broken"
"its files differ from the published ones"
[{"kind":"missing","path":"runenv/platform/5/r2/many/1","detail":""},)"
      "{\"kind\":\"extra\",\"path\":\"runenv/platform/5/r2/\xef\xbf\xbd\",\"detail\":\"\"}]\n");
}

TEST_F(StatusTest, WhatCannotBeLookedAtIsUnknown) {
  const std::string item = "runenv/platform/5", denied = ": Permission denied\n";
  const std::tuple<std::string, int, std::string> kRows[] = {
      {"chmod 0 " + item + "/latest", 3, "platform/5 unknown " + item + "/latest" + denied},
      {"chmod 0 runenv/platform", 3, "platform/5 unknown " + item + denied},
      {"mkdir -m 0 runenv/platform/6", 0, "runenv-status: runenv/platform/6" + denied},
      {": >" + item + "/latest; rm -r runenv/system-types/a*", 2,
       "platform/5 broken latest is empty"},
      {"mkdir -m 0 x; set -- --directory x", 3, "runenv-status: x" + denied},
  };
  for (const auto& [deny, status, told] : kRows) {
    const Outcome outcome = run(
        ordinary + deny + "; $as status \"$@\" 2>&1; status=$?; chmod -R u+rwX .; exit $status");
    EXPECT_EQ(outcome.status, status) << deny;
    EXPECT_NE(outcome.out.find(told), std::string::npos) << deny << outcome.out;
  }
}

TEST_F(StatusTest, AsksTheServerForAllAtOnce) {
  run("cd " + item("system-types/alpha/1.4") + "; mkdir a2; cp a1/* a2; echo a2 >latest");
  run("rm " + item("system-types/beta/0.9") + "/latest");
  const Outcome outcome = run("status --check");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out,
            "ITEM STATE RELEASE SINCE SIZE\nplatform/5 installed r1 WHEN N\n"
            "system-types/alpha/1.4 behind a1 -> a2 WHEN N\n"
            "system-types/beta/0.9 unknown b1 WHEN N\n"
            "3 items, 1 installed, 1 behind, 1 unknown\n");
  EXPECT_NE(outcome.err.find("404"), std::string::npos);
  run("rm -r runenv/platform");
  check(
      "runenv-status --check --verify --json versions.bin 2>&- | jq -c"
      " '.items | map([.state, .served])'",
      R"([["not installed","r1"],["behind","a2"],["unknown",null]])"
      "\n");
  // One connection, whatever curl's own file says besides.
  run("for i in $(seq 50); do cp -r " + item("system-types/alpha") + " " + item("system-types/t") +
      "$i; done; runenv-versions compose -o many 5 $(seq -f t%g=1.4 50);"
      " echo verbose >>server/curl/.curlrc");
  EXPECT_EQ(run("runenv-status --check --quiet many 2>&1 | grep -c '^[*] SSL connection'").out,
            "1\n");
}

// Whatever has not come whole is no pointer, and its directory is gone after every end.
TEST_F(StatusTest, DoesNotTakeAPartForAPointer) {
  const std::string ask = "TMPDIR=$PWD/t runenv-status --check --quiet versions.bin 2>&1";
  const std::string kRows[] = {
      "(ulimit -f 0; " + ask + ") | grep -q 'wishes: File too large' && exit 3",
      ask,
      "runenv-status --check --json versions.bin 2>&- | grep -c '\"served\": \"a1\"' && exit 3",
      "truncate -s 2M " + item("platform/5") + "/latest; " + ask,
      "printf '#!/bin/sh\nexec sleep 60' >bin/curl; chmod +x bin/curl; for s in INT TERM HUP; do "
      "TMPDIR=$PWD/t timeout --foreground -s $s 0.3 runenv-status --check versions.bin; done; exit "
      "3",
  };
  write_file("server/extra.conf",
             "keepalive_timeout 0; location = /moved { return 200 a1; }"
             "location ~ beta.*latest { add_header Content-Length 9; return 200 b1; }"
             "location ~ alpha.*latest { return 302 /moved; }");
  run("mkdir t; exec local-server.sh start server");
  for (const std::string& row : kRows) {
    EXPECT_EQ(run(row).status, 3) << row;
    EXPECT_TRUE(files::is_empty("t")) << row;
  }
}

TEST_F(StatusTest, PrintsForTerminalsAndPrograms) {
  run("runenv-versions compose -o hostile 5 $(printf 'a\\377\\033=1') \\\"=1 alpha=1.4");
  check(
      "runenv-status --json hostile | jq -r '.items[].name' | od -An -c | tr -d ' \\n'",
      "platform/5\\nsystem-types/\"/1\\nsystem-types/alpha/1.4\\nsystem-types/a357277275033/1\\n");
  check("runenv-status --json hostile | LC_ALL=C tr -d '\\n -~'");
  check("runenv-status --json versions.bin | jq -c '[keys_unsorted, (.items[0] | keys_unsorted)]'",
        R"([["document","server","status","items","other_releases","unlisted_items","leftovers"],)"
        R"(["name","state","release","since","bytes"]])"
        "\n");
  check(
      "touch -d @0 runenv/platform/5/latest; TZ=EST5 runenv-status --json versions.bin |"
      " jq -r '.items[0].since'",
      "1970-01-01T00:00:00Z\n");
  check(
      "mkdir -p down/f; cd bin; runenv-status --json --directory .. --temp-cache down"
      " ../versions.bin | jq -r '.items[0].bytes, .leftovers[].path'",
      run("du -sB1 runenv/platform/5/r1 | cut -f 1").out + "../down/f\n");
  run("cp -r " + item("system-types/alpha") + " '" + item("system-types/q\"\\b[1-2]") +
      "'; runenv-versions compose -o quoted 5 'q\"\\b[1-2]=1.4'");
  check("TMPDIR= runenv-status --check --json quoted | jq -c '.items[1].served'", "\"a1\"\n");
  run("runenv-versions compose -o lines 5 \"$(printf 'a\\noutput = stolen\\n#\\r=1')\" alpha=1.4");
  check("runenv-status --check --json lines 2>&- | jq -c '.items | map(.served)'; [ ! -e stolen ]",
        "[\"r1\",null,\"a1\"]\n");
  EXPECT_EQ(run("TMPDIR=/no/such runenv-status --check versions.bin").status, 3);
  const std::pair<uint64_t, const char*> kSizes[] = {
      {0, "0 B"},      {999, "999 B"},     {1000, "1.0 kB"},   {9949, "9.9 kB"},
      {9950, "10 kB"}, {999499, "999 kB"}, {999500, "1.0 MB"}, {UINT64_MAX, "18 EB"},
  };
  for (const auto& [bytes, text] : kSizes) EXPECT_EQ(runenv::size_text(bytes), text);
  const auto on_terminal = [&](const std::string& setting) {
    return run("script -qec \"" + setting + "; runenv-status versions.bin\" /dev/null").out;
  };
  EXPECT_NE(on_terminal("stty cols 60; export NO_COLOR=").find("1.4  \x1b[32minstalled\x1b[0m  a1"),
            std::string::npos);
  EXPECT_EQ(on_terminal("stty cols 200; export NO_COLOR=1").find('\x1b'), std::string::npos);
  EXPECT_NE(on_terminal("stty cols 60").find("SINCE\r\n"), std::string::npos);
  EXPECT_NE(on_terminal("stty cols 40").find("RELEASE\r\n"), std::string::npos);
  const std::string hint = "\nTry 'runenv-status --help'.";
  const Row kRows[] = {
      {"", "", "one document is needed" + hint},
      {"--json --quiet v", "", "--json and --quiet exclude each other" + hint},
      {"none", "", "none: No such file or directory"},
      {"versions.bin >/dev/full", "", "standard output: No space left on device"},
      {"--directory none versions.bin", "", "none: No such file or directory"},
  };
  for (const auto& [words, out, error] : kRows) {
    const Outcome outcome = run("runenv-status " + words);
    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(outcome.err, teller + error + "\n");
  }
  check(
      "mkdir new; runenv-versions compose -o one 5; runenv-status --directory new one | tail -n 1",
      "1 item, 1 not installed\n");
  check("runenv-status --version | tail -n 1", "server: https://localhost\n");
}
