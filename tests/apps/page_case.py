"""Shared by the tests of the tool's pages in a headless Chromium."""

import base64
import pathlib
import re
import sys
import urllib.error
import urllib.request
import zlib

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))
from browser import Browser
from tool_case import DEADLINE, ToolCase


class PageCase(ToolCase):
    def setUp(self):
        super().setUp()
        self.browser = Browser()
        self.addCleanup(self.browser.close)
        self.runs = 0

    def watch(self, *arguments, page="monitor"):
        """Starts the tool with a page; returns the process and the page's address."""
        self.runs += 1
        log = f"{self.runs}.log"
        process = self.background(log, *arguments)
        self.wait_for_text(log, f"the {page} is at ")
        return process, re.search(f"the {page} is at (.*)", self.read(log)).group(1)

    def play(self, scene, monitor="127.0.0.1:0"):
        return self.watch("play", self.scene(scene), "--backend", "silent", "--monitor", monitor)

    def wait_for_value(self, expression, wanted=True, module=None):
        self.wait_for(lambda: self.browser.value(expression, module) == wanted,
                      f"{expression} == {wanted!r}; errors: {self.browser.errors}")

    def text(self, selector):
        return self.browser.value(f"document.querySelector('{selector}').innerText")

    def of_the_map(self, expression):
        return self.browser.value(
            "(() => { const map = document.getElementById('map'), { x, z, scale } = map.dataset, box ="
            " map.getBoundingClientRect();"
            f" return {expression}; }})()")

    def wait_until_laid_out(self):
        """Waits until the map stays where it is, such as after a resize."""
        frames = "new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done)))"
        self.wait_for(lambda: [self.place(0, 0), self.browser.value(frames + ".then(() => null)")] ==
                      [self.place(0, 0), self.browser.value(frames + ".then(() => null)")], "the layout")

    def place(self, x, z):
        """Converts a place in the scene to window coordinates."""
        return self.of_the_map(f"[box.x + box.width / 2 + ({x} - x) * scale,"
                               f" box.y + box.height / 2 + ({z} - z) * scale]")

    def colour(self, x, y):
        """The red, green and blue of a place in the window."""
        png = base64.b64decode(self.browser.call("Page.captureScreenshot", clip={
            "x": int(x), "y": int(y), "width": 1, "height": 1, "scale": 1})["data"])
        data = png.index(b"IDAT") + 4
        length = int.from_bytes(png[data - 8:data - 4], "big")  # a pixel is whole in the first chunk
        return list(zlib.decompressobj().decompress(png[data:data + length])[1:4])

    def address(self, url, body=None, **headers):
        """The status, headers and text of an address's answer."""
        request = urllib.request.Request(url, data=body, headers=headers)
        try:
            answer = urllib.request.urlopen(request, timeout=DEADLINE)
        except urllib.error.HTTPError as error:
            answer = error
        with answer:
            return answer.status, answer.headers, answer.read().decode()

    def wait_until_live(self, emitters):
        self.wait_for_value("document.getElementById('link').textContent", "live")
        self.wait_for_value("document.querySelectorAll('#emitters tbody tr').length", emitters)
