#!/usr/bin/env python3
"""Retakes the screenshots of the web pages in docs/images: screenshots.py TOOL.

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
     "--monitor", "127.0.0.1:0", "--web", "--loop"], stderr=subprocess.PIPE, text=True)
browser = Browser()
try:
    told = player.stderr.readline() + player.stderr.readline()
    monitor = re.search(r"monitor is at (\S+)", told).group(1)
    web = "http://127.0.0.1:" + re.search(r"Web server open ok: http://.*:(\d+)", told).group(1)
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
        while not browser.value("tracks.has(19) && tracks.get(19).x > 1.7", "scene"):
            time.sleep(0.01)
        browser.screenshot(images / f"monitor-{name}.png")
    if browser.errors:
        sys.exit(f"the page reports: {browser.errors}")
finally:
    browser.close()
    player.kill()
    player.wait()
