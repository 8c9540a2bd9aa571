#!/usr/bin/env python3
"""Scene files from Python: checks one, renders it with a progress callback, and plays it fast.

usage: python_show.py SCENE OUT.wav
"""
import sys

import orvel

try:
    scene = orvel.Scene(sys.argv[1])
except orvel.FileError as fault:
    sys.exit(str(fault))  # every mistake, with its line and field
for warning in scene.check():
    print(warning)

parts: list[float] = []
scene.render_file(sys.argv[2], progress=parts.append)
print(f"rendered {scene.duration} s in {len(parts)} blocks")

with orvel.World() as world:
    playback = scene.play(world)
    playback.start(scene.duration / 2)
    emitters = len(world.emitters)
    print(f"half-way there are {emitters} emitters; all is over at {playback.end} s")
sys.exit(0 if emitters > 0 and parts[-1] == 1 else 1)
