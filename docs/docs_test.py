#!/usr/bin/env python3
"""Tests the documents: docs_test.py SOURCE-DIRECTORY BUILD-DIRECTORY

Runs their commands and compares the output, with its own distribution server and machines.
docs/testing.md describes the blocks of a document.
"""
import atexit, os, re, sys, tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from subprocess import DEVNULL, PIPE, STDOUT, run

SOURCE, BUILD = (Path(word).resolve() for word in sys.argv[1:])
SCRATCH_OWNER = tempfile.TemporaryDirectory()
SCRATCH = Path(SCRATCH_OWNER.name)
DOCUMENTS = [*SOURCE.glob("*.md"), *SOURCE.glob("docs/*.md"), *SOURCE.glob("docs/man/*.1")]
FILES = ("nginx",)  # a block of this kind is a file, whose name is in its first line
SYSTEM = ("apt", "systemctl", "systemd-sysusers", "systemd-tmpfiles", "journalctl", "ansible-playbook")  # not run
# Replaces paths, names and ports of the documents by those of this test.
PORT = 12000 + 2 * (os.getpid() % 4000)
PLACES = {r"(?<=[ =':\"])/tmp/": f"{SCRATCH}/tmp/", r"\b7007\b": f"{PORT}",
          "/srv/runenv": f"{SCRATCH}/server/www", r"dist\.example\.com": "localhost",
          r".*\[::\]:443.*\n": "", "listen 443": f"listen 127.0.0.1:{PORT + 1}",
          "/etc/ssl/localhost": f"{SCRATCH}/server/server", "/usr/local/bin": f"{SCRATCH}/build",
          "/usr/local/libexec/runenv": f"{SCRATCH}/libexec",
          "/etc/(?:runenv|nginx)": rf"{SCRATCH}/machine\g<0>"}
os.environ.update(HOME=f"{SCRATCH}", CURL_HOME=f"{SCRATCH}/server/curl",
                  PATH=f"{SCRATCH}/bin:{BUILD}:{os.environ['PATH']}:/usr/sbin",
                  ASAN_OPTIONS="allocator_may_return_null=1")


def sh(script, directory=SCRATCH):
    """Runs a shell script, which must succeed. Ends its background job. Returns its output."""
    ran = run(["sh", "-euc", 'trap "kill \\${!-} 2>&- || :" EXIT\n' + script], cwd=directory,
              stdin=DEVNULL, stdout=PIPE, stderr=STDOUT)
    printed = ran.stdout.decode(errors="replace")
    assert ran.returncode == 0, f"{script}\n{printed}"
    return printed


def expect(words, text):
    for word in words:
        assert re.search(rf"(?<![\w-]){re.escape(word)}(?![\w-])", text), f"unknown word: {word}"


def read(document):
    text = document.read_text()
    for place, ours in PLACES.items():
        text = re.sub(place, ours, text)
    return text


def blocks_of(document):
    """Returns the blocks of a document in order: (kind, text)."""
    text = read(document)
    if document.suffix == ".1":  # the examples of a manual page
        text = re.sub(r"(?ms)^\.Bd.*?\n(.*?)^\.Ed|^\.Dl (.*?)$", r"```sh\n\1\2\n```", text)
    return re.findall(r"(?m)^```(.*)\n((?:.*\n)*?)(?:```$|\Z)", text)


def check_names(document):
    """Checks that the files, headings, options and variables in a document exist."""
    text = document.read_text()
    for path, heading in re.findall(r"\]\(([\w./-]*)#?([\w-]*)\)", text):
        target = (document.parent / path if path else document).read_text()
        titles = re.sub(r"[^\w\n -]", "", target).replace(" ", "-").lower()
        assert f"\n-{heading}\n" in titles + "\n-\n", f"no {path}#{heading}"
    for path in re.findall(r"`([a-z.]+/[a-z0-9_./-]+)[` ]", text):
        if path.startswith("build/"):
            assert (BUILD / path[6:]).exists(), f"no {path}"
        elif (SOURCE / path.split("/")[0]).is_dir():
            assert (SOURCE / path).exists(), f"no {path}"
    quoted = " ".join(re.findall(r"`[^`\n]*`|Fl -[a-z-]+|RUNENV_[A-Z_]+", text))
    expect(re.findall(r"--[a-z][a-z-]+|RUNENV_[A-Z_]+", quoted.replace("Fl -", "--")), KNOWN)


def is_run_here(line):
    """Returns whether a line of a block is run here. Checks that CI or install_test.sh runs it
    otherwise, or that --help of its program knows its words."""
    words = line.split(" #")[0].split() or [""]
    if words[0] in SYSTEM or "/usr/share/" in line:
        expect([word for word in words if not re.search("[0-9./=]|runenv", word)],
               sh(f"{words[0]} --help 2>&1 || echo '{line}'") + KNOWN)
    elif "scripts/" in line or "cmake/checks/" in line or words[0] in ("cmake", "cpack", ".ci/run"):
        expect([" ".join(words)], ELSEWHERE)
    else:
        return True


def sizeless(text):
    """Returns the text without the sizes of archives, which depend on the time of packing."""
    return re.sub(r"\(\d+ B", "(SIZE", text)


def follow(document):
    """Runs a document in a directory of its own."""
    directory = SCRATCH / document.name
    published = "empty" if document.name == "README.md" else "www"
    sh(f"rm -rf tmp/* server/www; cp -r {published} server/www; mkdir {directory}; ln -s ../build {SOURCE}/contrib {directory}")
    if document.suffix == ".1":  # its examples expect these files
        sh("mkdir out x64 arm64; tar -czf linker.tar.gz -C out .;"
           "runenv-versions compose -o versions.bin 5", directory)
    printed = ""
    for kind, text in blocks_of(document):
        if kind == "sh":
            printed = sh("\n".join(filter(is_run_here, text.split("\n"))), directory)
            continue
        holds = {
            "text": sizeless(text) == sizeless(printed),
            "hex": re.sub("(?m)^(.{40}).*", r"\1", text).split() == printed.split(),  # without the remarks
            "cpp": text in EXAMPLES,
            "": not text.startswith("runenv-") or text.split(" ", 1)[1] in USAGE,
            "cmake": document.name == "embedding.md",  # install_test.sh runs it
            "make": document.name == "embedding.md",
        }.get(kind, kind in FILES)
        assert holds, f"{kind or 'usage'}:\n{text}after:\n{printed}"


def check_setting(row):
    """Checks how a run with a setting of curl or tar ends and what it prints. An earlier run was killed
    while it unpacked, and left another archive in the temp cache."""
    setting, outcome, text = row
    of_curl, of_tar = ("", setting) if setting.startswith("--") else (setting, "")
    printed = sh(f"""
        mkdir -p .update runenv/platform/6/release-2
        cp ../www/2/runenv/system-types/linker/0.9/build-3/linux-x64.tar.gz .update
        echo 'the pla' >runenv/platform/6/release-2/README
        {{ cat ../machine/etc/runenv/.curlrc && echo '{of_curl}'; }} >.curlrc
        export CURL_HOME="$PWD" TAR_OPTIONS='{of_tar}'
        timeout {2 if outcome == "hangs" else 60} runenv-bootstrap ../six.bin ||
          {{ [ $? -ne 124 ] && echo fails || echo hangs; exit 0; }}
        diff -r ../content runenv/platform/6/release-2 && echo installs || echo damages
        """, tempfile.mkdtemp(dir=SCRATCH))
    assert printed.endswith(f"{outcome}\n") and text in printed, f"{setting}:\n{printed}"


KNOWN = sh("""env --help && tar --help && curl --help all
    cat CMakeLists.txt cmake/*.cmake cmake/checks/*.sh scripts/*.sh app/* schema/* tools/*.* tests/*.* contrib/upload/*""", SOURCE)
USAGE = sh("runenv-bootstrap --help")
ELSEWHERE = sh("cat .ci/run; echo .ci/run", SOURCE) + read(SOURCE / "docs/building.md")
EXAMPLES = [path.read_text() for path in SOURCE.glob("examples/*.cpp")]

# Writes the files, and publishes what the documents use on a server.
for kind, text in (block for document in DOCUMENTS for block in blocks_of(document)):
    if kind in FILES:
        file = Path(re.match("# (.*)", text)[1])
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)
sh(f"""
    mkdir tmp server www empty content bin libexec
    keys="--keys '$PWD/machine/etc/runenv/keys'"  # instead of the built-in directory
    printf '#!/bin/sh\\ncase $* in *--keys*) keys= ;; *) keys=1 ;; esac\\nexec "%s" ${{keys:+%s}} "$@"\\n' \\
      '{BUILD}/runenv-verify' "$keys" >bin/runenv-verify
    printf '#!/bin/sh\\nexec runenv-verify --tar "$@"\\n' >libexec/tar
    chmod +x bin/* libexec/*
    ln -s '{BUILD}' build
    mv machine/etc/nginx/conf.d/runenv.conf server/site.conf
    publish() {{ echo "$1" >content/README; shift; runenv-publish www "$@" --from content; }}
    publish 'the platform, release 1' platform 5 release-1
    publish 'the compiler, build 7' system-type compiler 1.4 build-7
    publish 'the linker, build 3' system-type linker 0.9 build-3""")
run([SOURCE / "scripts/local-server.sh", "start", SCRATCH / "server"], check=True)
atexit.register(run, [SOURCE / "scripts/local-server.sh", "stop", SCRATCH / "server"])
sh(f"""sed -i 's/127.*/127.0.0.1:{PORT + 1}"/' server/curl/.curlrc""")

for document in DOCUMENTS:
    print(document)
    check_names(document)
    follow(document)

# Checks the settings for curl in the package.
curlrc = (SOURCE / "contrib/curlrc").read_text()
expect(["--" + name for name in re.findall("(?m)^[a-z-]+", curlrc)], KNOWN)
sh(f"cat {SOURCE}/contrib/curlrc server/curl/.curlrc >machine/etc/runenv/.curlrc")

# Checks that settings that must never be set do what their row says.
sh("""cp content/README content/README.md
    head -c 200000 /dev/urandom >content/data
    runenv-publish server/www platform 6 release-2 --from content
    runenv-versions compose -o six.bin 6""")
section = read(SOURCE / "docs/operations.md").split("\n## Never set these\n")[1].split("\n## ")[0]
rows = [("fail", "installs", "")]
for settings, outcome, text in re.findall(
        r"(?m)^\| (`.*) \| ([a-z]+)(?:[^`\n]*`(.*?)`.*|.*) \|$", section):
    rows += [(setting, outcome, text) for setting in re.findall("`(.*?)`", settings)
             if "--" + re.search("[a-z]+[a-z-]*", setting)[0] in KNOWN]  # an older curl knows fewer options
assert len(rows) > 30, rows
with ThreadPoolExecutor(8) as pool:
    list(pool.map(check_setting, rows))

# Checks that the manual pages and completions have every option.
for program in ("runenv-bootstrap", "runenv-versions", "runenv-publish", "runenv-verify",
                "runenv-prune", "runenv-status", "runenv-served"):
    for option in re.findall(r"(?m)^ +(?:-\w, )?--([a-z][a-z-]+)", sh(f"{program} --help")):
        for file in (f"docs/man/{program}.1", f"scripts/completions/bash/{program}",
                     "scripts/completions/zsh/_runenv", f"scripts/completions/fish/{program}.fish"):
            assert re.search(f"-l? ?{option}", (SOURCE / file).read_text()), f"{file}: no {option}"

# Checks that every message of the programs is documented: the fixed parts of what the code prints or
# throws.
told = " ".join(sh("cat docs/*.md", SOURCE).split())
code = sh("cat app/*.cpp core/buffer.cpp fs/*.cpp process/*.cpp schema/*.cpp tools/*.cpp", SOURCE)
for call in re.findall(r"(?:\b(?:(?:throw|exit|report|refuse)_\w+|report|refuse|fail|redirect_child|"
                       r"Runtime\.(?:error|log))\(|\bproblem = )[^;]*;", code):
    for literal in re.findall(r'"((?:[^"\\]|\\.)*)"', call):
        for part in re.split(r"%[-0-9.*l]*[a-z]", literal.replace(r"\n", "")):
            assert len(part) < 6 or part in told, f"not documented: {part}"
for literal in re.findall(r'fail "([^"]*)"', sh("cat contrib/runenv-update.sh.in", SOURCE)):
    for part in re.split(r"@libexecdir@|\$\w+", literal):
        assert part in told, f"not documented: {part}"
