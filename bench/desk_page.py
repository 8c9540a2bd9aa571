#!/usr/bin/env python3
"""Measures the desk in a headless Chromium on this machine: desk_page.py TOOL [EMITTERS [RUNS]].

Plays scenes of 1,000 emitters that stand still and that move, drags one of them, and prints meanwhile the frames a
second of the page and of its map, the time from a pointer's event until the player has changed the scene, by the
player's clock, and the time until the page has the answer.
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

MOVES = 300
count = int(sys.argv[2]) if len(sys.argv) > 2 else 1000
side = math.ceil(math.sqrt(count))


def scene(moves):
    emitters = [{"id": i + 1, "source": 1, "position": [i % side, 0, i // side], "state": "play"}
                for i in range(count)]
    timeline = [{"at": 0, "emitter": e["id"], "position": [e["position"][0] + 5, 0, e["position"][2]], "over": 300}
                for e in emitters] if moves else []
    return {"orvel": 1, "duration": 600, "sources": [{"id": 1, "tone": {}, "loop": True}],
            "emitters": emitters, "timeline": timeline}


def wait_until(condition, what):
    deadline = time.monotonic() + 30
    while not condition():
        if time.monotonic() > deadline:
            sys.exit(f"not {what}; the page reports: {browser.errors}")
        time.sleep(0.1)


# The times of the page's frames, in the background, and how far the clock of its events is behind the system's.
FRAMES = """(() => {
  window.frames_ = [];
  const next = (now) => { window.frames_.push(now); requestAnimationFrame(next); };
  requestAnimationFrame(next);
  let skew = -Infinity;
  for (const end = performance.now() + 50; performance.now() < end;) {
    skew = Math.max(skew, Date.now() - performance.timeOrigin - performance.now());
  }
  return skew;
})()"""
DRAWN = "[Number(document.getElementById('map').dataset.frames), performance.now(), window.frames_.length]"


def percentiles(times):
    times = sorted(times)
    return f"{times[len(times) // 2]:.1f} and {times[len(times) * 95 // 100]:.1f} ms (at most {times[-1]:.1f})"


def tasks():
    metrics = browser.call("Performance.getMetrics")["metrics"]
    return next(m["value"] for m in metrics if m["name"] == "TaskDuration")


def measure(name):
    rest = "(({ x, z, scale }) => [x, z, scale].join())(document.getElementById('map').dataset)"
    wait_until(lambda: [browser.value(rest), time.sleep(0.5)][0] == browser.value(rest), "a map at rest")
    browser.call("Performance.enable")
    skew = browser.value(FRAMES)
    box = browser.value("(({ x, y }) => [x, y])(document.getElementById('map').getBoundingClientRect())")
    # Takes the emitter where it is by then.
    place = browser.value("(({ toX, toZ }) => [toX, toZ])(tracks.get(2))", "scene")
    x, y = browser.value(f"[toX({place[0]}), toY({place[1]})]", "view")
    x, y = x + box[0], y + box[1]
    drawn, begin, frames = browser.value(DRAWN)
    busy = tasks()
    for kind, dx in [("mousePressed", 0), *(("mouseMoved", 1 + i % 200) for i in range(MOVES)),
                     ("mouseReleased", MOVES)]:
        browser.call("Input.dispatchMouseEvent", type=kind, x=x + dx, y=y + dx, button="left",
                     buttons=0 if kind == "mouseReleased" else 1, clickCount=1)
        time.sleep(0.008)
    drawn_after, end, frames_after = browser.value(DRAWN)
    busy = tasks() - busy
    seconds = (end - begin) / 1000
    wait_until(lambda: browser.value("latencies.length", "deskLink") > 0, "any change")
    time.sleep(1)
    times = browser.value("latencies", "deskLink")
    print(f"{count} emitters, {name}, load {os.getloadavg()[0]:.1f}, while one is dragged for {seconds:.1f} s: "
          f"{(drawn_after - drawn) / seconds:.0f} frames a second of the map, {(frames_after - frames) / seconds:.0f} "
          f"of the page, whose thread is busy for {100 * busy / seconds:.0f} %")
    print(f"  {len(times)} changes, from the pointer to the changed scene, median and 95 %: "
          f"{percentiles([t['applied'] - skew for t in times])}; to the answer in the page: "
          f"{percentiles([t['answered'] for t in times])}", flush=True)


def run(folder, name, moves):
    global browser
    path = pathlib.Path(folder) / "scene.json"
    path.write_text(json.dumps(scene(moves)), encoding="utf-8")
    player = subprocess.Popen([sys.argv[1], "play", path, "--backend", "silent", "--desk", "0"],
                              stderr=subprocess.PIPE, text=True)
    browser = Browser()
    try:
        browser.open(re.search(r"desk is at (\S+)", player.stderr.readline()).group(1))
        wait_until(lambda: browser.value("mayChange()", "deskLink") and
                   browser.value("tracks.size", "scene") > count and
                   browser.value("document.querySelector('.deskbar .legend li') !== null"), "the whole scene")
        measure(name)
        if browser.errors:
            sys.exit(f"the page reports: {browser.errors}")
    finally:
        browser.close()
        player.kill()
        player.wait()


for _ in range(int(sys.argv[3]) if len(sys.argv) > 3 else 1):
    with tempfile.TemporaryDirectory() as temporary:
        run(temporary, "still", False)
        run(temporary, "all moving", True)
