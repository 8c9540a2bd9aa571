"""The monitor in a headless Chromium, and its addresses: monitor_test.py TOOL [unittest arguments]."""

import json
import re
import signal
import sys
import unittest

from page_case import PageCase
from browser import find_chromium
from tool_case import free_port

SCENE = {
    "orvel": 1,
    "duration": 1000,
    "sources": [{"id": 1, "tone": {"hertz": 441, "seconds": 1.0}, "loop": True}],
    "emitters": [
        {"id": 11, "source": 1, "position": [-4, 0, 0], "state": "play", "gain": 0.25,
         "rotation": [0, 1, 0, 0], "hull": {"minBack": 0.5, "minFront": 1.5}, "labels": ["<b>bold</b>", "front"]},
        {"id": 12, "position": [4, 0, 0]}],
    "timeline": [{"at": 0.01 if k == 0 else 3.0 * k, "emitter": 12,
                  "position": [4, 0, 2 if k % 2 == 0 else -2], "over": 2.9} for k in range(100)],
}


class Monitor(PageCase):
    def test_a_scene_is_shown_and_followed(self):
        _, url = self.play(SCENE)
        self.browser.open(url)
        self.wait_until_live(2)
        # An emitter is where it should be, in its colour; a click on it shows all its values.
        x, y = self.place(-4, 0)
        self.wait_for(lambda: self.colour(x, y) == [168, 58, 134], "the sign")
        self.browser.click(x, y)
        self.wait_for_value("document.getElementById('chosen').textContent", "Emitter 11")
        values = self.text("#values")
        for wanted in ["play", "1 441 Hz", "<b>bold</b>, front", "−4, 0, 0", "0.25",
                       "up to 1", "4 from the listener"]:
            self.assertIn(wanted, values)
        # Its hull is drawn as it is heard, equal on all sides.
        sides = [self.colour(*self.place(-4 + side * far, side * far))
                 for side in (-1, 1) for far in (0.6, 0.8)]
        self.assertEqual(sides[:2], sides[2:])
        self.assertNotEqual(sides[0], sides[1])
        # Names are inserted as text, even if they look like markup.
        self.assertIn("<b>bold</b>, front", self.text("#emitters"))
        self.assertEqual(self.browser.value("document.querySelectorAll('b').length"), 0)
        # Silent emitters have a sign of their own.
        part = self.browser.value("tracks.get(11).part", "scene")
        for changes, sign in [({}, "play"), ({"gain": 0}, "muted"), ({"source": None}, "muted"),
                              ({"state": "none"}, "stop"), ({"state": "pause"}, "pause"),
                              ({"over": True}, "over"), ({"spatial": False}, "play")]:
            text = json.dumps({**part, **changes})
            self.assertEqual(self.browser.value(f"hearing({text}).sign", "scene"), sign, changes)
            self.assertEqual(self.browser.value(f"heardReach({text})", "scene"), {"full": 1, "softest": 10}
                             if changes != {"spatial": False} else None)
        # A moving emitter is updated on the map and in the values, and leaves a path.
        self.browser.value("document.querySelector('tr[data-id=\"12\"]').click()")
        seen = set()

        def moved():
            found = re.search("position\\s+4, 0, (\\S+)", self.text("#values"))
            seen.add(float(found.group(1).replace("−", "-")))
            return len(seen) >= 4 and max(seen) - min(seen) > 1
        self.wait_for(moved, f"positions {seen}")
        self.assertGreater(self.browser.value("tracks.get(12).path.length", "scene"), 4)
        drawn = self.browser.value("tracks.get(12).z", "scene")
        self.assertTrue(-2 <= drawn <= 2, drawn)
        # The wheel zooms around the pointer, dragging pans, and the button shows everything again.
        scale = float(self.browser.value("document.getElementById('map').dataset.scale"))
        self.browser.wheel(x, y, -300)
        self.wait_for_value(f"Number(document.getElementById('map').dataset.scale) > {scale} * 1.5")
        near = self.place(-4, 0)
        self.assertLess(abs(near[0] - x) + abs(near[1] - y), 2)
        self.browser.drag(x, y, 50, 20)
        self.wait_for(lambda: abs(self.place(-4, 0)[0] - x - 50) < 2, "the drag")
        self.browser.value("document.getElementById('fit').click()")
        self.wait_for_value(f"Number(document.getElementById('map').dataset.scale) < {scale} * 1.5")
        self.wait_for_value("/movement: [1-9]/.test(document.getElementById('groups').innerText)")
        self.assertIn("silent", self.text("#backends"))
        self.assertEqual(self.browser.errors, [])

    def test_a_restart_is_survived(self):
        player, url = self.play(SCENE)
        self.browser.open(url)
        self.wait_until_live(2)
        self.assertEqual(self.browser.errors, [])
        player.kill()
        player.wait()
        self.wait_for_value("document.getElementById('link').className", "pill lost")
        self.wait_for_value("document.getElementById('notice').hidden", False)
        other = {**SCENE, "emitters": [{**SCENE["emitters"][0], "id": 77}], "timeline": []}
        self.play(other, monitor=url.split("/")[2])
        self.wait_until_live(1)
        self.assertIn("77", self.text("#emitters"))
        self.assertEqual(sorted(self.browser.value("[...tracks.keys()]", "scene")), [0, 77])
        self.assertTrue(self.browser.value("document.getElementById('notice').hidden"))
        # The browser itself reports each failed request; there must be no other error.
        self.assertEqual([error for error in self.browser.errors
                          if error.get("source") != "network"], [])

    def test_connections_are_shown(self):
        port = free_port()
        here = ["--interface", "127.0.0.1", "--monitor", "127.0.0.1:0"]
        scene = self.scene(SCENE)
        _, served = self.watch("serve", "--scene", scene, "--backend", "silent", "--port", port,
                               *here)
        player, played = self.watch("play", scene, "--backend", "client:port=" + port, *here)
        for url, role in [(served, "Server, id 0"), (played, "Client")]:
            self.browser.open(url)
            self.wait_for_value("document.querySelectorAll('#network tbody tr').length", 1)
            self.assertIn(role, self.text("#network"))
        self.browser.open(served)
        self.wait_until_live(2)
        player.send_signal(signal.SIGINT)
        self.wait_for_value("document.querySelectorAll('#network tbody tr').length", 0)
        self.wait_until_live(0)  # the client's parts are removed with it
        self.assertEqual(self.browser.errors, [])
        status = json.loads(self.address(served + "api/status")[2])
        self.assertEqual(status["network"][0]["connected"], 1)
        _, headers, text = self.address(served + "metrics")
        self.assertEqual(headers["Content-Type"], "text/plain; version=0.0.4; charset=utf-8")
        self.assertIn("\norvel_network_connected_total{role=\"server\"} 1\n", text)

    def test_nothing_foreign_is_loaded_and_phones_need_not_scroll_sideways(self):
        _, url = self.play(SCENE)
        self.assertTrue(self.address(url)[1]["Content-Security-Policy"].startswith(
            "default-src 'none'; script-src 'self';"))
        self.browser.resize(390, 844, phone=True)
        for dark in (False, True):
            self.browser.set_dark(dark)
            self.browser.open(url)
            self.wait_until_live(2)
            self.assertEqual(
                self.browser.value("document.documentElement.scrollWidth <= innerWidth"), True)
            light = self.browser.value(
                "getComputedStyle(document.body).backgroundColor.match(/\\d+/g).map(Number)")
            self.assertEqual(max(light) < 100, dark, light)
            names = self.browser.value(
                "performance.getEntriesByType('resource').map(({ name }) => name)")
            self.assertTrue(all(name.startswith(url) for name in names), names)
        self.assertEqual(self.browser.errors, [])

    def test_an_address_that_cannot_be_is_refused(self):
        player, url = self.play(SCENE)
        taken = url.split("/")[2]
        scene = self.scene(SCENE)
        for address, code, words in [
                ([taken], 1, "Address already in use"), (["nonsense:"], 2, "expected ADDR:PORT"),
                (["127.0.0.1:65536"], 2, "expected ADDR:PORT"),
                ([], 0, "the monitor is at http://127.0.0.1:")]:  # the scene is not taken for an address
            self.assertIn(words, self.run_tool("play", "--monitor", *address, scene, "--backend",
                                               "silent", "--seconds", "0.1", code=code)[1])
        player.kill()

    def test_a_name_must_be_the_machines_or_be_given(self):
        _, url = self.watch("play", self.scene(SCENE), "--backend",
                            "monitor:port=0 names='proxy.example, other.example'")
        for host, code in [("other.example:80", 200), ("evil.example", 421)]:
            self.assertEqual(self.address(url + "metrics", Host=host)[0], code)


if __name__ == "__main__":
    if find_chromium() is None:
        print("skipped: Chromium is not installed; scripts/install-deps.sh installs it")
        sys.exit(77)
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]])
