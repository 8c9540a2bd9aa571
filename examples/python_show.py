#!/usr/bin/env python3
"""Scene files from Python: checks one, renders it with a progress callback, and plays it fast.

usage: python_show.py SCENE OUT.wav [LIBRARY]     the path of liborvel-show.so, if not installed
"""
import ctypes
import sys
from ctypes import POINTER, c_bool, c_char_p, c_double, c_int, c_size_t, c_void_p

HANDLE, TEXT = c_void_p, c_char_p
PROGRESS = ctypes.CFUNCTYPE(c_bool, c_double, c_void_p)
orvel = ctypes.CDLL(sys.argv[3] if len(sys.argv) > 3 else "liborvel-show.so.0.1")


class Problem(ctypes.Structure):
    _fields_ = [("file", TEXT), ("line", c_int), ("column", c_int), ("field", TEXT), ("text", TEXT)]


for name, result, *arguments in [
    ("last_error", TEXT), ("world_create", HANDLE), ("world_destroy", c_bool, HANDLE),
    ("world_emitter_count", c_size_t, HANDLE),
    ("show_file_load", HANDLE, TEXT, c_bool), ("show_file_good", c_bool, HANDLE),
    ("show_file_problem_count", c_size_t, HANDLE),
    ("show_file_problem", c_bool, HANDLE, c_size_t, POINTER(Problem)),
    ("show_file_check", c_int, HANDLE, POINTER(c_double)), ("show_file_destroy", None, HANDLE),
    ("show_render_file", c_bool, HANDLE, TEXT, c_void_p, PROGRESS, c_void_p),
    ("show_playback_create", HANDLE, HANDLE, HANDLE), ("show_playback_destroy", None, HANDLE),
    ("show_playback_start", c_bool, HANDLE, c_double),
    ("show_playback_advance", c_bool, HANDLE, c_double), ("show_playback_end", c_double, HANDLE),
]:
    function = getattr(orvel, "orvel_" + name)
    function.restype, function.argtypes = result, arguments

scene = orvel.orvel_show_file_load(sys.argv[1].encode(), False)
for index in range(orvel.orvel_show_file_problem_count(scene)):
    problem = Problem()
    orvel.orvel_show_file_problem(scene, index, problem)
    print(f"{problem.file.decode()}:{problem.line}: {problem.field.decode()}: {problem.text.decode()}")
seconds = c_double()
warnings = orvel.orvel_show_file_check(scene, seconds)
print(f"{warnings} warnings, {seconds.value} s")

parts = []
if not orvel.orvel_show_render_file(
        scene, sys.argv[2].encode(), None, PROGRESS(lambda done, user: parts.append(done) or True), None):
    sys.exit(orvel.orvel_last_error().decode())
print(f"rendered in {len(parts)} blocks")

world = orvel.orvel_world_create()
playback = orvel.orvel_show_playback_create(world, scene)
orvel.orvel_show_file_destroy(scene)
orvel.orvel_show_playback_start(playback, seconds.value / 2)
emitters = orvel.orvel_world_emitter_count(world)
print(f"half-way there are {emitters} emitters; all is over at {orvel.orvel_show_playback_end(playback)} s")
orvel.orvel_show_playback_destroy(playback)
orvel.orvel_world_destroy(world)
sys.exit(0 if emitters > 0 and parts[-1] == 1 else 1)
