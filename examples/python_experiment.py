#!/usr/bin/env python3
"""A listening experiment: noise from random directions ahead; the answers go to a CSV file.

usage: python_experiment.py OUT.csv [TRIALS [ANSWERS]]   answers from a file, one a line, without a listener
"""
import csv
import math
import random
import sys
import time

import numpy

import orvel

path = sys.argv[1]
trials = int(sys.argv[2]) if len(sys.argv) > 2 else 20
answers = open(sys.argv[3]).read().split() if len(sys.argv) > 3 else None
chance = random.Random(path)  # the same directions for the same file name

with orvel.World() as world, open(path, "w", newline="") as file:
    if not world.add_backend("default").working:
        sys.exit("there is no sound device")
    noise = world.create_source()
    burst = numpy.random.default_rng(1).uniform(-0.5, 0.5, 8820)
    noise.set_samples(burst * numpy.hanning(burst.size), 44100)
    place = world.create_emitter(source=noise, hull=orvel.Hull(50, 50, 3, 3))
    table = csv.writer(file)
    table.writerow(["trial", "azimuth", "answer", "error", "seconds"])
    errors = []
    for trial in range(1, trials + 1):
        azimuth = chance.uniform(-90, 90)  # degrees, 0 ahead, to the right
        place.position = (2 * math.sin(math.radians(azimuth)), 0, -2 * math.cos(math.radians(azimuth)))
        place.play()
        asked = time.monotonic()
        answer = answers[trial - 1] if answers else input(f"{trial}. From where, -90 to 90 degrees? ")
        errors.append(float(answer) - azimuth)
        table.writerow(
            [trial, f"{azimuth:.1f}", answer, f"{errors[-1]:.1f}", f"{time.monotonic() - asked:.2f}"])
        place.stop()
    print(f"{trials} trials, mean error {numpy.mean(numpy.abs(errors)):.1f} degrees")
