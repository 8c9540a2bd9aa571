#!/usr/bin/env python3
"""Orvel from Python: a sound server and a scene that drives it, both in this process."""
import logging
import sys
import time

import orvel

logging.basicConfig(level=logging.WARNING)  # the library's log goes to the logger "orvel"
print("Orvel", orvel.__version__, *orvel.backend_kinds())

with orvel.Server("127.0.0.1") as server, orvel.World() as scene:
    server.interfaces = ["127.0.0.1"]  # without these two lines, any client on the network can find it
    server.multicast = orvel.Multicast(port=server.port, ttl=0)
    server.on_reset = lambda: server.create_source(1, file="/usr/share/sounds/alsa/Front_Left.wav")
    server.add_backend("default")

    scene.add_backend("client", interfaces=["127.0.0.1"], port=server.port, ttl=0)
    voice = scene.create_source(1)  # whose sound is on the server
    emitter = scene.create_emitter(source=voice, position=(-2, 0, -2), hull=orvel.Hull(50, 50, 1, 1))
    emitter.play()

    end = time.monotonic() + 10
    while voice.duration == 0 and time.monotonic() < end:
        server.poll(0.01)
        scene.update()  # applies the answer of the server: the duration of the voice
    heard = server.source(1)
    playing = heard is not None and heard.state == orvel.State.PLAY
    print(f"the server plays a voice of {voice.duration:.2f} s" if playing else "the server is silent")
    sys.exit(0 if voice.duration > 0 and playing else 1)
