"""Shared by the tests of the tool; the first argument of the process is the tool."""

import array
import json
import math
import os
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import wave

TOOL = os.path.abspath(sys.argv[1])
DEADLINE = 30

LEFT = {
    "orvel": 1,
    "sources": [{"id": 1, "tone": {"hertz": 441, "seconds": 1.0, "amplitude": 0.5}}],
    "emitters": [{"id": 11, "source": 1, "position": [-2, 0, 0], "state": "play",
                  "hull": {"minBack": 2, "minFront": 2}}],
}


def changed(scene, **keys):
    return {**json.loads(json.dumps(scene)), **keys}


def channels(path):
    """The samples of both channels of a 16-bit file."""
    with wave.open(path) as file:
        samples = array.array("h", file.readframes(file.getnframes()))
    return samples[::2], samples[1::2]


def levels(path):
    """RMS of both channels, in dB."""
    return [rms_dB(samples) for samples in channels(path)]


def rms_dB(samples):
    mean = sum(s * s for s in samples) / max(1, len(samples)) / 32768.0 ** 2
    return 10 * math.log10(mean) if mean > 0 else -math.inf


def free_port(kind=socket.SOCK_DGRAM):
    with socket.socket(socket.AF_INET, kind) as probe:
        probe.bind(("127.0.0.1", 0))
        return str(probe.getsockname()[1])


class ToolCase(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="orvel-")
        self.addCleanup(shutil.rmtree, self.folder)

    def scene(self, content, name="scene.json"):
        with open(os.path.join(self.folder, name), "w", encoding="utf-8") as file:
            json.dump(content, file)
        return name

    def path(self, name):
        return os.path.join(self.folder, name)

    def read(self, name):
        with open(self.path(name), encoding="utf-8") as file:
            return file.read()

    def start(self, *arguments, prefix=(), env=None, **more):
        files = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE}
        # Nothing is announced on the network of this machine: a namespace does not keep Avahi out.
        environment = {**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": "disabled:", **(env or {})}
        return subprocess.Popen([*prefix, TOOL, *arguments], cwd=self.folder, env=environment,
                                **{"text": True, **files, **more})

    def finish(self, process, code):
        out, err = process.communicate(timeout=DEADLINE)
        self.assertEqual(process.returncode, code, f"{process.args}\n{out}\n{err}")
        return out, err

    def background(self, log, *arguments, **more):
        """Starts the tool with its output in a file, and ensures that it ends."""
        with open(self.path(log), "w", encoding="utf-8") as file:
            process = self.start(*arguments, stdout=file, stderr=file, **more)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def wait_for_text(self, log, text, times=1):
        self.wait_for(lambda: self.read(log).count(text) >= times, f"{text} in {log}")

    def run_tool(self, *arguments, code=0, env=None):
        return self.finish(self.start(*arguments, env=env), code)

    def wait_for(self, condition, what):
        deadline = time.monotonic() + DEADLINE
        while not condition():
            self.assertLess(time.monotonic(), deadline, what)
            time.sleep(0.005)  # between two checks
