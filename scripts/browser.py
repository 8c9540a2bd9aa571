"""Drives a headless Chromium through its DevTools pipe, without a driver or other packages."""

import base64
import json
import os
import select
import shutil
import subprocess
import tempfile
import time

DEADLINE = 30


def find_chromium():
    """The browser's path, or None."""
    return shutil.which("chromium") or shutil.which("chromium-browser")


class Browser:
    """One page. Collects console messages and exceptions in `errors`."""

    def __init__(self, width=1280, height=800, dark=False):
        self.profile = tempfile.mkdtemp(prefix="orvel-browser-")
        self.errors = []
        self._number = 0
        self._answers = {}
        self._loaded = 0
        self._rest = b""
        reading, browsers_output = os.pipe()
        browsers_input, writing = os.pipe()
        self._reading, self._writing = reading, writing
        flags = ["--headless=new", "--remote-debugging-pipe", "--no-first-run", "--disable-gpu",
                 "--disable-background-networking", "--disable-component-update",
                 "--disable-sync", "--disable-dev-shm-usage", "--hide-scrollbars",
                 "--no-default-browser-check", "--disable-extensions",
                 # Only this machine can be reached.
                 "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE localhost, EXCLUDE 127.0.0.1",
                 "--proxy-server=direct://", "--user-data-dir=" + self.profile]
        if os.geteuid() == 0:
            flags.append("--no-sandbox")  # the sandbox does not start for root
        # The browser requires its pipe at descriptors 3 and 4.
        self.process = subprocess.Popen(
            ["/bin/sh", "-c", f'exec "$0" "$@" 3<&{browsers_input} 4>&{browsers_output}',
             find_chromium(), *flags, "about:blank"],
            pass_fds=(browsers_input, browsers_output), stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            env={**os.environ, "HOME": self.profile, "XDG_CONFIG_HOME": self.profile,
                 "DBUS_SESSION_BUS_ADDRESS": "disabled:"})
        os.close(browsers_input)
        os.close(browsers_output)
        self._session = None
        try:
            pages = self.call("Target.getTargets")["targetInfos"]
            target = next(page["targetId"] for page in pages if page["type"] == "page")
            self._session = self.call(
                "Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
            for domain in ("Page", "Runtime", "Log"):
                self.call(domain + ".enable")
            self.resize(width, height)
            self.set_dark(dark)
        except BaseException:
            self.close()
            raise

    def close(self):
        self.process.kill()
        self.process.wait()
        os.close(self._reading)
        os.close(self._writing)
        shutil.rmtree(self.profile, ignore_errors=True)

    def call(self, method, **parameters):
        """Calls a method of the DevTools protocol and returns its result."""
        self._number += 1
        number = self._number
        message = {"id": number, "method": method, "params": parameters}
        if self._session:
            message["sessionId"] = self._session
        os.write(self._writing, json.dumps(message).encode() + b"\0")
        self._read_until(lambda: number in self._answers, method)
        answer = self._answers.pop(number)
        if "error" in answer:
            raise RuntimeError(f"{method}: {answer['error']}")
        return answer["result"]

    def _read_until(self, condition, what):
        deadline = time.monotonic() + DEADLINE
        while not condition():
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([self._reading], [], [], left)[0]:
                raise TimeoutError(f"the browser does not answer: {what}")
            data = os.read(self._reading, 1 << 20)
            if not data:
                raise RuntimeError(f"the browser has ended: {what}")
            *messages, self._rest = (self._rest + data).split(b"\0")
            for message in messages:
                self._take(json.loads(message))

    def _take(self, message):
        if "id" in message:
            self._answers[message["id"]] = message
            return
        details = message.get("params", {})
        method = message["method"]
        if method == "Page.loadEventFired":
            self._loaded += 1
        elif method == "Runtime.exceptionThrown":
            self.errors.append(details["exceptionDetails"])
        elif method == "Runtime.consoleAPICalled" and details["type"] in ("error", "warning"):
            self.errors.append(details["args"])
        elif method == "Log.entryAdded" and details["entry"]["level"] in ("error", "warning"):
            self.errors.append(details["entry"])

    def open(self, url):
        if "#" in url:  # else a page that differs only in the fragment is not loaded
            self.open("about:blank")
        before = self._loaded
        self.call("Page.navigate", url=url)
        self._read_until(lambda: self._loaded > before, url)

    def resize(self, width, height, phone=False):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height,
                  deviceScaleFactor=1, mobile=phone)

    def set_dark(self, dark):
        self.call("Emulation.setEmulatedMedia", features=[
            {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])

    def value(self, expression, module=None):
        """The value of a JavaScript expression, converted through JSON. It may use what a module of the
        page exports."""
        if module:
            expression = f"import('/{module}.js').then((module) => {{ with (module) return {expression}; }})"
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True,
                           awaitPromise=True)
        if "exceptionDetails" in result:
            raise RuntimeError(f"{expression}: {result['exceptionDetails']}")
        return result["result"].get("value")

    def click(self, x, y):
        for kind in ("mousePressed", "mouseReleased"):
            self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, button="left", clickCount=1)

    def drag(self, x, y, dx, dy):
        for kind, to_x, to_y in [("mousePressed", x, y), ("mouseMoved", x + dx / 2, y + dy / 2),
                                 ("mouseMoved", x + dx, y + dy), ("mouseReleased", x + dx, y + dy)]:
            self.call("Input.dispatchMouseEvent", type=kind, x=to_x, y=to_y, button="left",
                      buttons=0 if kind == "mouseReleased" else 1, clickCount=1)

    def wheel(self, x, y, delta):
        self.call("Input.dispatchMouseEvent", type="mouseWheel", x=x, y=y, deltaX=0, deltaY=delta)

    def screenshot(self, path, whole=False):
        data = self.call("Page.captureScreenshot", captureBeyondViewport=whole)["data"]
        with open(path, "wb") as file:
            file.write(base64.b64decode(data))
