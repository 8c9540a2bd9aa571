"""The desk in a headless Chromium, and its requests: desk_test.py TOOL [unittest arguments]."""

import http.server
import json
import sys
import threading
import unittest

from page_case import PageCase
from browser import find_chromium

SCENE = """{ "orvel": 1, "duration": 1000, // a comment
  "cues": [{ "name": "a", "at": 0 }, { "name": "b", "at": 100 }],
  "sources": [{ "id": 1, "tone": { "seconds": 1.0 }, "loop": true }],
  "emitters": [
    { "id": 11, "source": 1, "position": [-4, 0, 0], "state": "play" }, // left
    { "id": 12, "position": [4, 1, 0] }],
  "timeline": [{ "at": 0, "emitter": 11, "position": [-4, 0, 2], "over": 900 }] }
"""
TYPE = "application/vnd.orvel.desk+json"

HOSTILE = """<!DOCTYPE html><title>working</title><iframe name="frame"></iframe>
<form method="post" enctype="text/plain" target="frame" action="DESK"><input name='BODY' value=''></form>
<script>
const tries = [[{}, 'TYPE'], [{}, 'text/plain'], [{ mode: 'no-cors' }, 'TYPE'],
  [{ mode: 'no-cors', credentials: 'include' }, 'text/plain']];
(async () => {
  for (const [more, type] of tries) {
    await fetch('DESK', { method: 'POST', body: 'BODY', ...more,
      headers: { 'Content-Type': type, Authorization: 'Bearer TOKEN' } }).catch(() => {});
  }
  navigator.sendBeacon('DESK', new Blob(['BODY'], { type: 'TYPE' }));
  document.forms[0].submit();
  await new Promise((resolve) => document.querySelector('iframe').addEventListener('load', resolve));
  document.title = 'done';
})();
</script>"""


class Desk(PageCase):
    def desk(self):
        """Plays the scene with a desk; returns its address without the token, and the token."""
        with open(self.path("scene.json"), "w", encoding="utf-8") as file:
            file.write(SCENE)
        _, url = self.watch("play", "scene.json", "--backend", "silent", "--desk", "0", page="desk")
        return url.split("#token=")

    def emitter(self, url, number):
        scene = json.loads(self.address(url + "api/scene")[2])
        return next(emitter for emitter in scene["emitters"] if emitter["id"] == number)

    def wait_for_place(self, url, number, wanted):
        self.wait_for(lambda: all(abs(a - b) < 0.1 for a, b in
                                  zip(self.emitter(url, number)["position"], wanted)),
                      f"emitter {number} at {wanted}, not {self.emitter(url, number)}")

    def open(self, url, token):
        self.browser.open(f"{url}#token={token}")
        self.wait_until_live(2)
        self.wait_for_value("mayChange()", module="deskLink")

    def press(self, text):
        self.browser.value(
            f"[...document.querySelectorAll('button')].find((b) => b.textContent === '{text}').click()")

    def key(self, key, modifiers=0):
        for kind in ("keyDown", "keyUp"):
            self.browser.call("Input.dispatchKeyEvent", type=kind, key=key, modifiers=modifiers)

    def test_parts_are_moved_by_pointer_key_and_finger_and_hold_until_released(self):
        url, token = self.desk()
        self.open(url, token)
        # The token is kept out of the address and of what the browser sends elsewhere.
        self.assertEqual(self.browser.value("location.href"), url)
        self.assertEqual(self.address(url)[1]["Referrer-Policy"], "no-referrer")
        scale = float(self.of_the_map("scale"))
        x, y = self.place(-4, self.emitter(url, 11)["position"][2])
        self.browser.drag(x, y, 2 * scale, -3 * scale)
        self.wait_for_place(url, 11, [-2, 0, -3])
        self.assertEqual(self.text("#chosen"), "Emitter 11")
        self.wait_for(lambda: "by hand: position" in self.text(".controls"), "the mark")
        # Its timeline goes on without it, and other values of it are still free.
        self.browser.value("document.getElementById('map').focus()")
        self.key("ArrowRight", modifiers=8)
        self.wait_for(lambda: self.emitter(url, 11)["position"][0] > -1.95, "the key")
        self.press("Mute")
        self.wait_for(lambda: self.emitter(url, 11)["gain"] == 0, "mute")
        self.wait_for_value(  # the page knows; its button would mute again before
            "[...document.querySelectorAll('button')].find((b) => b.textContent === 'Mute').ariaPressed",
            "true")
        self.press("Mute")
        self.wait_for(lambda: self.emitter(url, 11)["gain"] == 1, "the gain")
        for _ in range(3):
            self.key("z", modifiers=2)
        self.wait_for_place(url, 11, [-2, 0, -3])
        self.press("Release")
        self.wait_for(lambda: self.emitter(url, 11)["position"][2] >= 0, "the timeline")
        # A change is sent, and the answer comes, even while the page's thread is busy.
        changes = len(self.browser.value("latencies", "deskLink"))
        self.browser.value("(() => { const since = performance.now(); change(12, { gain: 0.5 }, '', since);"
                                   " while (performance.now() < since + 2000); })()", "deskLink")
        self.wait_for_value(f"latencies.length > {changes}", module="deskLink")
        self.assertLess(self.browser.value("latencies.at(-1).answered", "deskLink"), 2000)
        self.key("z", modifiers=2)
        # A finger at phone width; two fingers zoom instead.
        self.browser.resize(390, 844, phone=True)
        self.browser.call("Emulation.setTouchEmulationEnabled", enabled=True)
        self.wait_until_laid_out()
        self.browser.value("document.getElementById('map').scrollIntoView()")
        self.wait_until_laid_out()
        scale = float(self.of_the_map("scale"))
        x, y = self.place(4, 0)
        for kind, points in [("touchStart", [(x, y)]), ("touchMove", [(x, y + scale)]),
                             ("touchMove", [(x, y + 2 * scale)]), ("touchEnd", [])]:
            self.browser.call("Input.dispatchTouchEvent", type=kind,
                              touchPoints=[{"x": a, "y": b} for a, b in points])
        self.wait_for_place(url, 12, [4, 1, 2])
        self.assertTrue(self.browser.value("document.documentElement.scrollWidth <= innerWidth"))
        self.wait_for_value(  # the page knows that there is something to save
            "[...document.querySelectorAll('button')].find((b) => b.textContent === 'Save').disabled",
            False)
        self.press("Save")
        self.wait_for_value("document.querySelector('.message').textContent", "Saved scene.json.")
        x, y, z = self.emitter(url, 12)["position"]
        self.assertEqual(self.read("scene.json"), SCENE.replace(
            "[4, 1, 0]", f"[{x:g}, {y:g}, {z:g}]"))
        self.assertEqual(self.browser.errors, [])

    def test_cues_are_played_and_time_is_scrubbed_by_pointer_and_key(self):
        url, token = self.desk()
        self.open(url, token)

        def state(key):
            return json.loads(self.address(url + "api/desk")[2])[key]
        self.press("b")
        self.wait_for(lambda: state("cue") == "b" and state("time") >= 100, "the cue")
        self.wait_for_value("document.querySelector('[aria-current]').textContent", "b")
        self.browser.value("document.getElementById('map').focus()")
        self.key("Enter")
        self.wait_for(lambda: state("state") == "paused", "the pause")
        self.wait_for_value("[...document.querySelectorAll('button')].some((b) => b.textContent === 'Go on')")
        x, y, width = self.browser.value(
            "(({ x, y, width, height }) => [x, y + height / 2, width])("
            "document.querySelector('.deskbar [type=range]').getBoundingClientRect())")
        self.browser.drag(x + width / 10, y, width * 0.4, 0)
        self.wait_for(lambda: abs(state("time") - 500) < 20, "half of the time")
        self.assertAlmostEqual(self.emitter(url, 11)["position"][2], 2 * state("time") / 900, 3)
        before = state("time")
        self.browser.value("document.getElementById('map').focus()")
        self.key(",")
        self.wait_for(lambda: state("time") < before - 4, "five seconds back")
        picture = json.loads(self.address(url + "api/desk/picture")[2])
        self.assertEqual((picture["end"], picture["sounding"], picture["changes"][100], picture["changes"][399]),
                         (1000, [1] * 400, 1, 0))
        self.wait_for_value("document.querySelector('.scrub canvas').ariaLabel",
                            "Activity over the time. sounding: at most 1 emitter, at 0 s; changes: most at 0 s; "
                            "lines: 2 cues")
        self.assertEqual(self.browser.errors, [])

    def test_without_the_token_one_can_only_watch(self):
        url, _ = self.desk()
        self.browser.open(url)
        self.wait_until_live(2)
        x, y = self.place(4, 0)
        self.browser.click(x, y)
        self.wait_for_value("document.getElementById('chosen').textContent", "Emitter 12")
        self.assertTrue(self.browser.value(
            "[...document.querySelectorAll('.controls button, .action')].every((b) => b.disabled)"))
        self.assertIn("Watching only", self.text(".message"))
        self.browser.drag(x, y, 40, 40)
        self.assertEqual(self.emitter(url, 12)["position"], [4, 1, 0])
        self.assertEqual(self.browser.errors, [])

    def test_only_its_own_page_can_change_something(self):
        url, token = self.desk()
        body = json.dumps({"changes": [{"emitter": 12, "gain": 0.5}]})
        good = {"Content-Type": TYPE, "Origin": url[:-1], "Authorization": f"Bearer {token}"}
        for headers, status in [
                ({"Content-Type": "application/json"}, 415), ({"Content-Type": f"{TYPE}, {TYPE}"}, 415),
                ({"Origin": "http://evil.example"}, 403), ({"Origin": "null"}, 403),
                ({"Origin": url[:-1].replace("127.0.0.1", "localhost")}, 403),
                ({"Origin": None}, 403), ({"Authorization": None}, 401),
                ({"Authorization": token}, 401), ({"Authorization": f"Bearer {token}0"}, 401),
                ({"Authorization": f"Bearer {token[:-1]}g"}, 401), ({"Host": "evil.example"}, 421)]:
            sent = {key: value for key, value in {**good, **headers}.items() if value is not None}
            self.assertEqual(self.address(url + "api/desk", body.encode(), **sent)[0], status, headers)

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                self.send_response(200)
                self.send_header("Content-Type", "text/html")
                self.end_headers()
                page = HOSTILE
                for old, new in [("DESK", url + "api/desk"), ("BODY", body), ("TYPE", TYPE),
                                 ("TOKEN", token)]:  # even if it knew the token
                    page = page.replace(old, new)
                self.wfile.write(page.encode())

            def log_message(self, *_):
                pass

        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.browser.open(f"http://127.0.0.1:{server.server_port}/")
        self.wait_for_value("document.title", "done")
        self.assertEqual(self.emitter(url, 12)["gain"], 1)
        # The same request from its own page is accepted.
        self.assertEqual(self.address(url + "api/desk", body.encode(), **good)[0], 200)
        self.assertEqual(self.emitter(url, 12)["gain"], 0.5)


if __name__ == "__main__":
    if find_chromium() is None:
        print("skipped: Chromium is not installed; scripts/install-deps.sh installs it")
        sys.exit(77)
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]])
