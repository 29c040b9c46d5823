"""A headless Chromium for tests, by the plain HTTP protocol of its driver (W3C WebDriver)."""

import base64
import json
import os
import re
import shutil
import subprocess
import tempfile
import urllib.request

FLAGS = ("--headless", "--disable-gpu", "--no-first-run", "--disable-background-networking",
         "--disable-component-update", "--disable-sync", "--mute-audio")


class Browser:
    """Opens pages, acts on them, looks at them."""

    def __init__(self, width=1200, height=900):
        self.folder = tempfile.mkdtemp(prefix="nalveo16-browser.")
        environment = {**os.environ, "HOME": self.folder, "no_proxy": "*"}
        # pylint: disable=consider-using-with
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE,
                                       stderr=subprocess.DEVNULL, text=True, env=environment)
        self.session = None
        try:
            for line in self.driver.stdout:
                if found := re.search(r"successfully on port (\d+)", line):
                    self.root = f"http://127.0.0.1:{found[1]}/session"
                    break
            flags = [*FLAGS, f"--user-data-dir={self.folder}", f"--window-size={width},{height}"]
            if os.getuid() == 0:
                flags.append("--no-sandbox")
            self.session = self.post("", {"capabilities": {"alwaysMatch": {
                "browserName": "chrome", "goog:chromeOptions": {"args": flags},
                "goog:loggingPrefs": {"browser": "ALL"}}}})["sessionId"]
        except BaseException:
            self.close()
            raise

    def close(self):
        if self.session:
            self.call("", method="DELETE")
        self.driver.terminate()
        self.driver.wait()
        self.driver.stdout.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    def call(self, path, data=None, method="GET"):
        session = f"/{self.session}" if self.session else ""
        request = urllib.request.Request(self.root + session + path, method=method,
                                         data=None if data is None else
                                         json.dumps(data).encode())
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        with opener.open(request, timeout=120) as answer:
            return json.load(answer)["value"]

    def post(self, path, data):
        return self.call(path, data, "POST")

    def open(self, path):
        self.post("/url", {"url": "file://" + os.path.realpath(path)})

    def run(self, script, *arguments):
        """What a script returns; it may await."""
        return self.post("/execute/async", {
            "script": "const done = arguments[arguments.length - 1];"
                      f"(async (...values) => {{{script}}})(...arguments).then(done, "
                      "(error) => done('error: ' + error));", "args": list(arguments)})

    def act(self, device, x, y, *steps):
        """Steps of the pointer or the wheel, (type, settings), from a place of the window."""
        self.post("/actions", {"actions": [{"type": device, "id": device, "actions": [
            {"type": step, "duration": 0, "x": round(x), "y": round(y), **more}
            for step, more in steps]}]})

    def point(self, x, y):
        self.act("pointer", x, y, ("pointerMove", {}))

    def drag(self, x, y, by):
        self.act("pointer", x, y, ("pointerMove", {}), ("pointerDown", {"button": 0}),
                 ("pointerMove", {"x": round(x + by)}), ("pointerUp", {"button": 0}))

    def wheel(self, x, y, by):
        self.act("wheel", x, y, ("scroll", {"deltaX": 0, "deltaY": by}))

    def click(self, selector):
        (found,) = self.post("/element", {"using": "css selector", "value": selector}).values()
        self.post(f"/element/{found}/click", {})

    def log(self):
        """What the console says."""
        return self.post("/se/log", {"type": "browser"})

    def screenshot(self, path):
        with open(path, "wb") as file:
            file.write(base64.b64decode(self.call("/screenshot")))
