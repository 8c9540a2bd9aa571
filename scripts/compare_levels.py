#!/usr/bin/env python3
"""Compares the levels of two stereo WAV files, second by second: compare_levels.py EXPECTED HEARD.

HEARD may begin earlier or later than EXPECTED; the shift that fits best is found first. Each second
may then be a little off by itself, because what came over a network came at its own time. Ends with
code 1 if the RMS level of a channel differs by more than the tolerance in any second.
"""

import array
import math
import sys
import wave

HOP = 0.01  # seconds between two measurements of the energy
FLOOR = -60.0  # dBFS; lower levels count as silence
TOLERANCE = 1.5  # dB
OWN_SHIFT = 0.06  # tolerance of a single second's position


def energies(path):
    """The sums of squares of each hop, for the left and the right channel, full scale being 1."""
    with wave.open(path) as file:
        if file.getnchannels() != 2 or file.getsampwidth() != 2:
            sys.exit(f"{path}: expected 16-bit stereo")
        hop = round(file.getframerate() * HOP)
        samples = array.array("h", file.readframes(file.getnframes()))
    if sys.byteorder == "big":
        samples.byteswap()
    channels = []
    for channel in (samples[0::2], samples[1::2]):
        channels.append([sum(s * s for s in channel[i:i + hop]) / (hop * 32768.0 ** 2)
                         for i in range(0, len(channel) - hop + 1, hop)])
    return channels


def decibels(mean):
    return max(FLOOR, 10 * math.log10(mean)) if mean > 0 else FLOOR


def best_shift(expected, heard):
    """The delay of `heard` in hops with the best match of the logarithmic levels."""
    a = [decibels(sum(pair) / 2) - FLOOR for pair in zip(*expected)]
    b = [decibels(sum(pair) / 2) - FLOOR for pair in zip(*heard)]

    def likeness(shift, step):
        return sum(a[i] * b[i + shift] for i in range(max(0, -shift), min(len(a), len(b) - shift),
                                                      step))

    rough = max(range(-len(a), len(b), 4), key=lambda shift: likeness(shift, 4))
    return max(range(rough - 8, rough + 9), key=lambda shift: likeness(shift, 1))


def level(channel, first, count):
    part = [channel[i] for i in range(first, first + count) if 0 <= i < len(channel)]
    return decibels(sum(part) / count)


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: compare_levels.py EXPECTED.wav HEARD.wav")
    expected, heard = energies(sys.argv[1]), energies(sys.argv[2])
    shift = best_shift(expected, heard)
    own = round(OWN_SHIFT / HOP)
    per_second = round(1 / HOP)
    print(f"{sys.argv[2]} is {shift * HOP:.3f} s later than {sys.argv[1]}")
    print("  second   left expected, heard   right expected, heard   (RMS, dBFS)")
    worst = 0.0
    for second in range(math.ceil(len(expected[0]) / per_second)):
        first = second * per_second
        count = min(per_second, len(expected[0]) - first)
        wanted = [level(channel, first, count) for channel in expected]
        found = min(([level(channel, first + shift + off, count) for channel in heard]
                     for off in sorted(range(-own, own + 1), key=abs)),
                    key=lambda levels: max(abs(l - w) for l, w in zip(levels, wanted)))
        difference = max(abs(f - w) for f, w in zip(found, wanted))
        worst = max(worst, difference)
        print(f"{second:8}  {wanted[0]:14.1f} {found[0]:6.1f}  {wanted[1]:15.1f} {found[1]:6.1f}"
              + ("   <- differs" if difference > TOLERANCE else ""))
    print(f"the largest difference is {worst:.2f} dB; {TOLERANCE} dB are allowed")
    return 1 if worst > TOLERANCE else 0


if __name__ == "__main__":
    sys.exit(main())
