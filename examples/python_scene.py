#!/usr/bin/env python3
"""Orvel from Python: a sound server and a scene that drives it, both in this process.

usage: python_scene.py [LIBRARY]     the path of liborvel.so, if it is not installed
"""
import ctypes
import sys
import time
from ctypes import c_bool, c_char_p, c_double, c_float, c_int, c_ushort, c_void_p

HANDLE, TEXT, FLOATS = c_void_p, c_char_p, ctypes.POINTER(c_float)
LOG_CALLBACK = ctypes.CFUNCTYPE(None, c_int, c_char_p, c_void_p)
RESET_CALLBACK = ctypes.CFUNCTYPE(None, c_void_p, c_void_p)
PLAY = 1
orvel = ctypes.CDLL(sys.argv[1] if len(sys.argv) > 1 else "liborvel.so.0.1")


def check(result, function, arguments):
    """Raises an exception for a failure."""
    if result is None or result is False or result == -1:
        raise RuntimeError(orvel.orvel_last_error().decode())
    return result


for name, result, *arguments in [
    ("last_error", TEXT), ("version", TEXT), ("backend_kinds", TEXT),
    ("log_set_callback", c_bool, LOG_CALLBACK, c_void_p),
    ("world_create", HANDLE), ("world_destroy", c_bool, HANDLE), ("world_update", c_bool, HANDLE),
    ("world_add_backend", HANDLE, HANDLE, TEXT, TEXT),
    ("source_create", HANDLE, HANDLE, c_int), ("source_find", HANDLE, HANDLE, c_int),
    ("source_set_url", c_bool, HANDLE, TEXT), ("source_duration", c_float, HANDLE),
    ("source_state", c_int, HANDLE),
    ("emitter_create", HANDLE, HANDLE, TEXT, c_int),
    ("emitter_set_hull", c_bool, HANDLE, c_float, c_float, c_float, c_float),
    ("emitter_set_transform", c_bool, HANDLE, FLOATS, FLOATS),
    ("emitter_set_source", c_bool, HANDLE, HANDLE), ("emitter_set_state", c_bool, HANDLE, c_int),
    ("server_create", HANDLE), ("server_destroy", c_bool, HANDLE),
    ("server_world", HANDLE, HANDLE), ("server_port", c_ushort, HANDLE),
    ("server_set_reset_callback", c_bool, HANDLE, RESET_CALLBACK, c_void_p),
    ("server_set_interfaces", c_bool, HANDLE, TEXT),
    ("server_set_multicast", c_bool, HANDLE, TEXT, c_ushort, c_int),
    ("server_poll", c_int, HANDLE, c_double),
]:
    function = getattr(orvel, "orvel_" + name)
    function.restype, function.argtypes = result, arguments
    if name != "last_error":
        function.errcheck = check


@LOG_CALLBACK
def on_log(level, text, user):
    if level <= 2:  # warnings and worse
        print("log:", text.decode().strip())


@RESET_CALLBACK
def on_reset(server, user):  # a client starts a new scene and needs our sources
    sound = orvel.orvel_source_create(orvel.orvel_server_world(server), 1)
    orvel.orvel_source_set_url(sound, b"/usr/share/sounds/alsa/Front_Left.wav")


orvel.orvel_log_set_callback(on_log, None)
print("Orvel", orvel.orvel_version().decode(), orvel.orvel_backend_kinds().decode().split())

server = orvel.orvel_server_create()
heard = orvel.orvel_server_world(server)
port = orvel.orvel_server_port(server)
orvel.orvel_server_set_interfaces(server, b"127.0.0.1")  # without these two calls, any client on the
orvel.orvel_server_set_multicast(server, b"239.255.77.90", port, 0)  # network can find it
orvel.orvel_server_set_reset_callback(server, on_reset, None)
orvel.orvel_world_add_backend(heard, b"default", None)

scene = orvel.orvel_world_create()
orvel.orvel_world_add_backend(
    scene, b"client", f"deferred=yes interfaces=127.0.0.1 port={port} ttl=0".encode())
voice = orvel.orvel_source_create(scene, 1)
emitter = orvel.orvel_emitter_create(scene, None, 0)
orvel.orvel_emitter_set_hull(emitter, 50, 50, 1, 1)
orvel.orvel_emitter_set_transform(emitter, (c_float * 3)(-2, 0, -2), None)
orvel.orvel_emitter_set_source(emitter, voice)
orvel.orvel_emitter_set_state(emitter, PLAY)

end = time.monotonic() + 10
while orvel.orvel_source_duration(voice) == 0 and time.monotonic() < end:
    orvel.orvel_server_poll(server, 0.01)
    orvel.orvel_world_update(scene)  # applies the answer of the server: the duration of the voice
seconds = orvel.orvel_source_duration(voice)
playing = orvel.orvel_source_state(orvel.orvel_source_find(heard, 1)) == PLAY
print(f"the server plays a voice of {seconds:.2f} s" if playing else "the server is silent")

orvel.orvel_world_destroy(scene)
orvel.orvel_server_destroy(server)
sys.exit(0 if seconds > 0 and playing else 1)
