#!/usr/bin/env python3
"""Looks at the index page in a browser: page_test.py PROGRAM-DIRECTORY SCRIPTS-DIRECTORY

Ends with status 77 where there is no chromium.
"""
import os, re, shutil, sys, tempfile, zlib
from html.parser import HTMLParser
from pathlib import Path
from subprocess import PIPE, run
from urllib.parse import unquote

CHROMIUM = shutil.which("chromium") or sys.exit(77)
PROGRAMS, SCRIPTS = (Path(word).resolve() for word in sys.argv[1:])
SCRATCH_OWNER = tempfile.TemporaryDirectory()
SCRATCH = Path(SCRATCH_OWNER.name)
os.environ.update(HOME=str(SCRATCH), CURL_HOME=f"{SCRATCH}/curl", PATH=f"{PROGRAMS}:{os.environ['PATH']}")
ODD = "a<b>&'\"+\u00e9;"  # a name with characters that are special in HTML and URLs
INDEX_LOCATIONS = """
location = / { try_files /index.html =404; default_type "text/html; charset=utf-8"; }
location = /index.json { default_type application/json; }
"""


def browse(url, *words):
    """What the browser prints and what it says of the page."""
    ran = run([CHROMIUM, "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
               "--ignore-certificate-errors", "--no-first-run", "--disable-background-networking",
               f"--user-data-dir={SCRATCH}/profile", "--enable-logging=stderr", "--v=0", *words, url],
              stdout=PIPE, stderr=PIPE, timeout=120, check=True)
    return ran.stdout.decode(), re.findall(r".*CONSOLE.*", ran.stderr.decode())


def pixels(url, *words):
    """The colour of the first pixel of a screenshot, and how many different bytes it has."""
    browse(url, f"--screenshot={SCRATCH}/shot.png", *words)
    png = (SCRATCH / "shot.png").read_bytes()
    data, at = b"", 8
    while at < len(png):
        length = int.from_bytes(png[at:at + 4], "big")
        data += png[at + 8:at + 8 + length] if png[at + 4:at + 8] == b"IDAT" else b""
        at += length + 12
    data = zlib.decompress(data)
    return data[1:4].hex(), len(set(data))


class Links(HTMLParser):
    def __init__(self, page):
        super().__init__()
        self.found, self.ids, self.tags = [], [], []
        self.feed(page)

    def handle_starttag(self, tag, attributes):
        self.tags.append(tag)
        self.found += [value for name, value in attributes if name == "href"]
        self.ids += [value for name, value in attributes if name == "id"]


for release in ("r1", "r2", "r3"):
    for item in (["platform", "5"], ["system-type", ODD, ODD]):
        source = SCRATCH / "content"
        source.mkdir(exist_ok=True)
        (source / "file").write_text(release)
        run(["mkdir", "-p", SCRATCH / "www"], check=True)
        run(["runenv-publish", SCRATCH / "www", *item, release, "--from", source], check=True)
run(["runenv-served", SCRATCH / "www", "index"], check=True)
(SCRATCH / "extra.conf").write_text(INDEX_LOCATIONS)
run([SCRIPTS / "local-server.sh", "start", SCRATCH], check=True)
try:
    port = re.search(r"127\.0\.0\.1:(\d+)", (SCRATCH / "curl/.curlrc").read_text())[1]
    url = f"https://127.0.0.1:{port}/"

    page, console = browse(url, "--dump-dom")
    assert console == [], console
    links = Links(page)
    assert not {"script", "b"} & set(links.tags), links.tags
    assert links.tags.count("svg") == 2 and f"system-types/{ODD}/{ODD}" in links.ids, page
    archives = 0
    for link in links.found:
        if link.startswith("#"):
            assert unquote(link[1:]) in links.ids, link
        elif not link.startswith("data:"):
            got = run(["curl", "-s", "-f", "--path-as-is", f"https://localhost/{link}"], stdout=PIPE, check=True).stdout
            assert got == (SCRATCH / "www" / unquote(link)).read_bytes(), link
            archives += got.startswith(b"\x1f\x8b")
    assert archives == 2 * (1 + 3), links.found

    # In light and dark mode, and at the width of a phone, nothing overflows.
    for words, ground in ((["--window-size=1280,900"], "ffffff"),
                          (["--window-size=1280,900", "--blink-settings=preferredColorScheme=0"], "14171a"),
                          (["--window-size=390,900"], "ffffff")):
        first, different = pixels(url, *words)
        assert first == ground and different > 100, (words, first, different)
    html = (SCRATCH / "www/index.html").read_text()
    script = "<script>parent.postMessage(document.documentElement.scrollWidth, '*')</script>"
    (SCRATCH / "inner.html").write_text(re.sub("<meta http-equiv.*", "", html) + script)
    (SCRATCH / "outer.html").write_text("<script>onmessage = e => document.title = e.data</script>"
                                        "<iframe width=390 frameborder=0 src=inner.html>")
    page, _ = browse(f"file://{SCRATCH}/outer.html", "--dump-dom", "--virtual-time-budget=2000")
    assert "<title>390</title>" in page, page

    # The policy works: a script is refused, and the console reports it.
    (SCRATCH / "script.html").write_text(html + "<script>document.title = 1</script>")
    page, console = browse(f"file://{SCRATCH}/script.html", "--dump-dom")
    assert "<title>Releases</title>" in page and console, page
finally:
    run([SCRIPTS / "local-server.sh", "stop", SCRATCH])
