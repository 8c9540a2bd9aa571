#!/usr/bin/env python3
"""A first sound from Python: a voice, ahead to the left."""
import time

import orvel

with orvel.World() as world:
    world.add_backend("default")
    voice = world.create_source(file="/usr/share/sounds/alsa/Front_Left.wav")
    place = world.create_emitter(source=voice, position=(-2, 0, -2), hull=orvel.Hull(50, 50, 1, 1))
    place.play()
    time.sleep(voice.duration)
