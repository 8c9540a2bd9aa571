#!/usr/bin/env python3
"""A sound server in 20 lines: plays the scenes of clients on other machines, until Ctrl-C.

usage: python_server.py [ADDRESS UDP-PORT SECONDS]    on one interface, for some time
"""
import math
import sys
import time

import orvel

address, port, seconds = sys.argv[1:] or ("", 33780, math.inf)
with orvel.Server(address) as server:
    server.interfaces = [address] if address else []
    server.multicast = orvel.Multicast(port=int(port))
    server.add_backend("default")

    def create_sources() -> None:  # which clients play by their ids
        server.create_source(1, file="/usr/share/sounds/alsa/Front_Left.wav")

    server.on_reset = create_sources  # a client starts a new scene
    create_sources()
    print("port", server.port, flush=True)
    end = time.monotonic() + float(seconds)
    while time.monotonic() < end:
        server.poll(0.05)
        server.update()
