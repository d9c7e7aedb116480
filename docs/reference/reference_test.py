#!/usr/bin/env python3
"""Tests the reference in a browser as wide as a phone: reference_test.py HTML-DIRECTORY

Every header's page must render without an error and be no wider than the screen, and the search must
find a function. The browser is Chromium, controlled by the DevTools protocol through two pipes.
"""
import json, os, re, subprocess, sys, tempfile, time
from pathlib import Path

PAGES = Path(sys.argv[1]).resolve()
WIDTH = 390
errors = []


class Browser:
    def __init__(self, profile):
        to_child, self.output = os.pipe()
        self.input, from_child = os.pipe()
        self.process = subprocess.Popen(
            ["sh", "-c", f'exec "$@" 3<&{to_child} 4>&{from_child}', "sh", "chromium", "--headless",
             "--no-sandbox", "--disable-gpu", "--remote-debugging-pipe", f"--user-data-dir={profile}"],
            pass_fds=(to_child, from_child), stderr=subprocess.DEVNULL)
        os.close(to_child), os.close(from_child)
        self.pending, self.calls, self.session, self.frame = b"", 0, {}, {}
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        self.session = {"sessionId": session}
        for domain in "Page", "Runtime", "Log":
            self.call(f"{domain}.enable")
        self.call("Emulation.setDeviceMetricsOverride", width=WIDTH, height=800,
                  deviceScaleFactor=1, mobile=True)

    def receive(self):
        while b"\0" not in self.pending:
            more = os.read(self.input, 1 << 16)
            assert more, "the browser has ended"
            self.pending += more
        message, self.pending = self.pending.split(b"\0", 1)
        message = json.loads(message)
        method, params = message.get("method"), message.get("params", {})
        if (method == "Runtime.exceptionThrown"
                or method == "Runtime.consoleAPICalled" and params["type"] in ("error", "assert")
                or method == "Log.entryAdded" and params["entry"]["level"] == "error"):
            errors.append(params)
        return message

    def call(self, method, **params):
        self.calls += 1
        request = {"id": self.calls, "method": method, "params": params, **self.session}
        os.write(self.output, json.dumps(request).encode() + b"\0")
        while (message := self.receive()).get("id") != self.calls:
            pass
        assert "error" not in message, f"{request}: {message}"
        return message["result"]

    def value(self, script):
        result = self.call("Runtime.evaluate", expression=script, returnByValue=True, **self.frame)
        assert "exceptionDetails" not in result, result
        return result["result"].get("value")

    def wait_for(self, script):
        for _ in range(100):
            if self.value(script):
                return
            time.sleep(0.1)
        raise AssertionError(f"never true: {script}")

    def open(self, page):
        self.call("Page.navigate", url=(PAGES / page).as_uri() if "/" not in page else page)
        while self.receive().get("method") != "Page.loadEventFired":
            pass


profile = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
browser = Browser(profile.name)
try:
    headers = sorted(page.name for page in PAGES.glob("*_8h.html"))
    assert len(headers) > 30, headers
    # A namespace without a comment would have no page, and nor would its members.
    source = Path(__file__).parents[2]
    spaces = {name for page in headers for header in source.glob(f"*/{page.replace('__', '_')[:-9]}.h")
              for name in re.findall(r"(?m)^namespace (\w+)", header.read_text())}
    spaces = [f"namespace{name}.html" for name in sorted(spaces)]
    for page in ["index.html", "files.html", *headers, *spaces]:
        browser.open(page)
        width = browser.value("document.documentElement.scrollWidth")
        assert width <= WIDTH, f"{page} is {width} wide"
        assert len(browser.value("document.body.innerText")) > 200, f"{page} is empty"

    # A comment documents neither a destructor further below nor what follows a static_assert.
    for page, text, times in (("classfs_1_1iterator__t", "Starts at the first entry", 2),
                              ("child__process_8h", "The caller owns it", 1)):
        assert (PAGES / f"{page}.html").read_text().count(text) == times, page

    browser.open("index.html")
    browser.wait_for("!!document.getElementById('MSearchField')")
    browser.value("document.getElementById('MSearchField').focus()")
    for letter in "create_child":
        browser.call("Input.dispatchKeyEvent", type="keyDown", text=letter, key=letter)
        browser.call("Input.dispatchKeyEvent", type="keyUp", key=letter)
    # The results are in a separate frame.
    browser.wait_for("document.getElementById('MSearchResults').src")
    while not (frame := browser.call("Page.getFrameTree")["frameTree"]["childFrames"][0]["frame"]
               )["url"].endswith("?create_child"):
        time.sleep(0.1)
    world = browser.call("Page.createIsolatedWorld", frameId=frame["id"])
    browser.frame = {"contextId": world["executionContextId"]}
    found = "[...document.querySelectorAll('.SRResult a')].find(link => link.offsetHeight && " \
            "link.innerText.includes('create_child'))"
    browser.wait_for(f"!!{found}")
    link, browser.frame = browser.value(f"{found}.href"), {}
    browser.open(link)
    browser.wait_for(f"!!document.getElementById('{link.split('#')[1]}')")
finally:
    browser.process.terminate()
    browser.process.wait()
assert not errors, errors
