#!/usr/bin/env python3
"""Retakes the screenshots of the web pages in docs/images: screenshots.py TOOL [desk].

With "desk" only those of the desk.

The tool plays the demo's scene, silently, and a headless Chromium looks at it when the tone that circles
the listener has come to the right. Needs the packages chromium and fonts-dejavu-core.
"""
import pathlib
import re
import subprocess
import sys
import time

from browser import Browser

root = pathlib.Path(__file__).resolve().parent.parent
images = root / "docs" / "images"

player = subprocess.Popen(
    [sys.argv[1], "play", root / "examples/scenes/voices.json", "--backend", "silent",
     "--desk", "0", "--monitor", "127.0.0.1:0", "--web", "--loop"], stderr=subprocess.PIPE, text=True)
browser = Browser()


def take(name):
    while not browser.value("tracks.has(19) && tracks.get(19).x > 1.7", "scene"):
        time.sleep(0.01)
    browser.screenshot(images / name)


try:
    told = "".join(player.stderr.readline() for _ in range(3))
    desk = re.search(r"desk is at (\S+)", told).group(1)
    monitor = re.search(r"monitor is at (\S+)", told).group(1)
    web = "http://127.0.0.1:" + re.search(r"Web server open ok: http://.*:(\d+)", told).group(1)
    if sys.argv[2:] != ["desk"]:
        browser.resize(900, 360)
        browser.open(web)  # has only one colour scheme
        # Hide the user and the machine.
        browser.value("""['orvel', 'studio', 'Linux 6.1 x86_64'].forEach((text, row) => {
            document.querySelectorAll('table')[1].rows[row].cells[1].textContent = text; })""")
        browser.screenshot(images / "web.png")
        for name, dark, size in [("light", False, (1280, 800)), ("dark", True, (1280, 800)),
                                 ("phone", True, (390, 844, True))]:
            browser.resize(*size)
            browser.set_dark(dark)
            browser.open(monitor)
            browser.value("choose(19)", "selection")
            take(f"monitor-{name}.png")
    for name, dark, size in [("desk", False, (1280, 800)), ("desk-phone", True, (390, 1240, True))]:
        browser.resize(*size)
        browser.set_dark(dark)
        browser.open(desk)
        while not browser.value("mayChange()", "deskLink"):
            time.sleep(0.01)
        for emitter, position in [(11, [-4.5, 0, -2]), (13, [2, 0, -4.5])]:
            browser.value(f"change({emitter}, {{ position: {position}, gain: 0.8 }})", "deskLink")
        browser.value("choose(13)", "selection")
        while not browser.value("held.size === 2", "scene"):
            time.sleep(0.01)
        take(f"{name}.png")
    if browser.errors:
        sys.exit(f"the page reports: {browser.errors}")
finally:
    browser.close()
    player.kill()
    player.wait()
