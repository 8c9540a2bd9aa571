#!/usr/bin/env python3
"""Measures the desk in a headless Chromium on this machine: desk_page.py TOOL [EMITTERS].

Plays a scene of 1,000 emitters, half of which move, and prints the frames a second that the page draws,
and the time from a pointer's event to the answer that the scene has been changed.
"""
import json
import math
import pathlib
import re
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "scripts"))
from browser import Browser

count = int(sys.argv[2]) if len(sys.argv) > 2 else 1000
side = math.ceil(math.sqrt(count))
emitters = [{"id": i + 1, "source": 1, "position": [i % side, 0, i // side]} for i in range(count)]
timeline = [{"at": 0, "emitter": e["id"], "position": [e["position"][0] + 5, 0, e["position"][2]], "over": 300}
            for e in emitters[::2]]
scene = {"orvel": 1, "duration": 600, "sources": [{"id": 1, "tone": {}}], "emitters": emitters,
         "timeline": timeline}

with tempfile.TemporaryDirectory() as folder:
    path = pathlib.Path(folder) / "scene.json"
    path.write_text(json.dumps(scene), encoding="utf-8")
    player = subprocess.Popen([sys.argv[1], "play", path, "--backend", "silent", "--desk", "0"],
                              stderr=subprocess.PIPE, text=True)
    browser = Browser()
    try:
        browser.open(re.search(r"desk is at (\S+)", player.stderr.readline()).group(1))
        while not browser.value("mayChange()", "deskLink") or browser.value("tracks.size", "scene") < count:
            time.sleep(0.1)
        frames = browser.value("""new Promise((resolve) => {
            const times = [];
            const next = (now) => {
              times.push(now);
              if (now - times[0] < 5000) requestAnimationFrame(next);
              else resolve(times);
            };
            requestAnimationFrame(next);
        })""")
        gaps = sorted(b - a for a, b in zip(frames, frames[1:]))
        print(f"{count} emitters: {(len(frames) - 1) / (frames[-1] - frames[0]) * 1000:.0f} frames a second, "
              f"the longest took {gaps[-1]:.0f} ms, the 95th percentile {gaps[len(gaps) * 95 // 100]:.0f} ms")
        x, y = browser.value("(() => { const r = map.getBoundingClientRect(), t = tracks.get(2);"
                             " return [r.x + toX(t.x), r.y + toY(t.z)]; })()".replace(
                                 "tracks.get(2)", "{ x: 1, z: 0 }"), "view")
        for kind, dx in [("mousePressed", 0), *(("mouseMoved", 2 * i) for i in range(1, 101)),
                         ("mouseReleased", 200)]:
            browser.call("Input.dispatchMouseEvent", type=kind, x=x + dx, y=y + dx, button="left",
                         buttons=0 if kind == "mouseReleased" else 1, clickCount=1)
            time.sleep(0.02)
        time.sleep(1)
        times = sorted(browser.value("latencies", "deskLink"))
        print(f"{len(times)} changes: from the pointer to the changed scene {times[len(times) // 2]:.1f} ms in "
              f"the median, {times[len(times) * 95 // 100]:.1f} ms in 95 %, {times[-1]:.1f} ms at most")
    finally:
        browser.close()
        player.kill()
        player.wait()
