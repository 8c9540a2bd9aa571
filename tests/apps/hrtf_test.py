"""A SOFA file is heard as it was measured: hrtf_test.py TOOL. The data set is the one that comes with
libmysofa."""

import array
import math
import sys
import unittest
import wave

try:
    import netCDF4
    import numpy
except ImportError:
    print("skipped: python3-netcdf4 is missing; scripts/install-deps.sh installs it")
    sys.exit(77)

from tool_case import ToolCase

RATE = 44100
HEAD = "/usr/share/libmysofa/MIT_KEMAR_normal_pinna.sofa"


def responses():
    """Those of the left and the right ear at the horizon, by degrees to the right."""
    with netCDF4.Dataset(HEAD) as file:
        return {round(-azimuth) % 360: numpy.array(pair)
                for (azimuth, elevation, _), pair in zip(file["SourcePosition"][:], file["Data.IR"][:])
                if abs(elevation) < 0.1}


def compare(left, right):
    """How much later, in microseconds, and louder, in dB, the right ear hears."""
    size = 65536  # interpolates between samples
    spectrum = numpy.fft.rfft(right, 8192) * numpy.conj(numpy.fft.rfft(left, 8192))
    shift = int(numpy.argmax(numpy.fft.irfft(spectrum, size)))
    shift -= size if shift > size // 2 else 0
    level = 10 * math.log10(numpy.dot(right, right) / numpy.dot(left, left))
    return shift * 8192 / size / RATE * 1e6, level


class Hrtf(ToolCase):
    def test_a_sofa_file_is_heard_as_it_was_measured(self):
        env = {"XDG_DATA_HOME": self.folder}
        self.run_tool("hrtf", HEAD, "head", env=env)
        head = responses()
        with wave.open(self.path("click.wav"), "wb") as file:
            samples = array.array("h", [0] * 4410)
            samples[1000] = 24000
            file.setparams((1, 2, RATE, 0, "NONE", ""))
            file.writeframes(samples.tobytes())
        for degrees in (30, -30, 60, -60, 90, -90, 180):  # to the right
            angle = math.radians(degrees)
            scene = self.scene({
                "orvel": 1, "duration": 0.1, "sources": [{"id": 1, "file": "click.wav"}],
                "emitters": [{"id": 1, "source": 1, "state": "play",
                              "position": [math.sin(angle), 0, -math.cos(angle)]}]})
            self.run_tool("render", scene, "o.wav", "--format", "f32", "--backend",
                          "voices:output=headphones hrtf=head", env=env)
            with open(self.path("o.wav"), "rb") as file:
                data = file.read().partition(b"data")[2][4:]
            heard = numpy.frombuffer(data[:len(data) // 8 * 8], "<f4").reshape(-1, 2)[900:1900].T
            measured = compare(*heard)
            own = compare(*head[degrees % 360])
            self.assertAlmostEqual(measured[0], own[0], delta=50, msg=degrees)
            self.assertAlmostEqual(measured[1], own[1], delta=2, msg=degrees)
            if degrees == 90:
                self.assertLess(own[0], -500)
                self.assertGreater(own[1], 5)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
