#!/usr/bin/env python3
"""Measures the desk in a headless Chromium on this machine: desk_page.py TOOL [EMITTERS].

Plays a scene of 1,000 emitters, half of which move, and prints the frames a second that the page draws with
the processor time of each, and the time from a pointer's event to the answer that the scene has been changed.
"""
import json
import math
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "scripts"))
from browser import Browser

SECONDS = 5
count = int(sys.argv[2]) if len(sys.argv) > 2 else 1000
side = math.ceil(math.sqrt(count))
emitters = [{"id": i + 1, "source": 1, "position": [i % side, 0, i // side], "state": "play"}
            for i in range(count)]
timeline = [{"at": 0, "emitter": e["id"], "position": [e["position"][0] + 5, 0, e["position"][2]], "over": 300}
            for e in emitters[::2]]
scene = {"orvel": 1, "duration": 600, "sources": [{"id": 1, "tone": {}, "loop": True}],
         "emitters": emitters, "timeline": timeline}


def wait_until(condition, what):
    deadline = time.monotonic() + 30
    while not condition():
        if time.monotonic() > deadline:
            sys.exit(f"not {what}; the page reports: {browser.errors}")
        time.sleep(0.1)


def measure_frames():
    browser.call("Performance.enable")

    def durations():
        metrics = browser.call("Performance.getMetrics")["metrics"]
        return {m["name"]: m["value"] for m in metrics if m["name"].endswith("Duration")}
    before = durations()
    frames = browser.value("""new Promise((resolve) => {
        const times = [];
        const next = (now) => {
          times.push(now);
          if (now - times[0] < SECONDS * 1000) requestAnimationFrame(next);
          else resolve(times);
        };
        requestAnimationFrame(next);
    })""".replace("SECONDS", str(SECONDS)))
    after = durations()
    gaps = sorted(b - a for a, b in zip(frames, frames[1:]))
    print(f"{count} emitters, load {os.getloadavg()[0]:.1f}: {1000 * len(gaps) / sum(gaps):.0f} frames a second; "
          f"the 95th percentile took {gaps[len(gaps) * 95 // 100]:.0f} ms, the longest {gaps[-1]:.0f} ms")
    print("a frame has, of the page's main thread: " + ", ".join(
        f"{name[:-8]} {1000 * (after[name] - before[name]) / len(gaps):.1f} ms"
        for name in ("ScriptDuration", "LayoutDuration", "RecalcStyleDuration", "TaskDuration")))


def measure_latency():
    rest = "(({ x, z, scale }) => [x, z, scale].join())(document.getElementById('map').dataset)"
    wait_until(lambda: [browser.value(rest), time.sleep(0.5)][0] == browser.value(rest), "a map at rest")
    x, y = browser.value("(() => { const r = map.getBoundingClientRect();"
                         " return [r.x + toX(1), r.y + toY(0)]; })()", "view")  # emitter 2 rests there
    for kind, dx in [("mousePressed", 0), *(("mouseMoved", 2 * i) for i in range(1, 101)), ("mouseReleased", 200)]:
        browser.call("Input.dispatchMouseEvent", type=kind, x=x + dx, y=y + dx, button="left",
                     buttons=0 if kind == "mouseReleased" else 1, clickCount=1)
        time.sleep(0.02)
    wait_until(lambda: browser.value("latencies.length", "deskLink") > 0, "any change")
    time.sleep(1)
    times = sorted(browser.value("latencies", "deskLink"))
    print(f"{len(times)} changes, load {os.getloadavg()[0]:.1f}: from the pointer to the changed scene "
          f"{times[len(times) // 2]:.1f} ms in the median, {times[len(times) * 95 // 100]:.1f} ms in 95 %, "
          f"{times[-1]:.1f} ms at most")


with tempfile.TemporaryDirectory() as folder:
    path = pathlib.Path(folder) / "scene.json"
    path.write_text(json.dumps(scene), encoding="utf-8")
    player = subprocess.Popen([sys.argv[1], "play", path, "--backend", "silent", "--desk", "0"],
                              stderr=subprocess.PIPE, text=True)
    browser = Browser()
    try:
        browser.open(re.search(r"desk is at (\S+)", player.stderr.readline()).group(1))
        wait_until(lambda: browser.value("mayChange()", "deskLink") and
                   browser.value("tracks.size", "scene") > count, "the whole scene")
        measure_frames()
        measure_latency()
    finally:
        browser.close()
        player.kill()
        player.wait()
