"""Recording and replaying a live session, as a user does:
capture_test.py TOOL COMPARE [unittest arguments]."""

import contextlib
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import unittest
import wave

from remote_case import RemoteCase
from tool_case import DEADLINE, LEFT, changed, channels

COMPARE = os.path.abspath(sys.argv[2])
RIGHT = changed(LEFT, sources=[{**LEFT["sources"][0], "id": 2}], emitters=[
    {**LEFT["emitters"][0], "id": 12, "source": 2, "position": [2, 0, 0]}])


class Capture(RemoteCase):
    def record(self, *arguments):
        recorder = self.background("record.log", "record", "s.orvelrec", "--port", self.port,
                                   *self.here, *arguments)
        self.wait_for_text("record.log", "orvel: serving")
        return recorder

    def test_what_was_heard_is_rendered_and_nothing_is_replaced(self):
        bank = self.scene(changed(LEFT, sources=[*LEFT["sources"], *RIGHT["sources"]]))
        recorder = self.record("--scene", bank, "--render", "live.wav")
        first = self.play("first.log", self.scene(changed(LEFT, duration=30), "first.json"))
        self.wait_for_text("first.log", "is connected")
        second = self.play("second.log", self.scene(RIGHT, "second.json"))
        self.assertEqual(second.wait(DEADLINE), 0)
        first.kill()  # its parts are removed when that is noticed
        self.wait_for_text("record.log", "is gone", 2)
        self.end(recorder, "record.log", signal.SIGHUP)
        self.assertRegex(self.read("record.log"), r"s\.orvelrec: \d\.\d\d s, \d\d events")
        os.remove(self.path(bank))  # the capture has its own copy
        self.run_tool("render", "s.orvelrec", "once.wav")
        compared = subprocess.run(
            [sys.executable, COMPARE, self.path("live.wav"), self.path("once.wav")],
            capture_output=True, text=True, timeout=DEADLINE, check=False)
        self.assertEqual(compared.returncode, 0, compared.stdout + compared.stderr)
        before = os.stat(self.path("s.orvelrec")).st_size
        for code, word, arguments in [
                (1, "exists already", ["record", "s.orvelrec", *self.here]),
                (2, "is a capture", ["render", "s.orvelrec", "o.wav", "--plot", "o.svg"])]:
            self.assertRegex(self.run_tool(*arguments, code=code)[1], word)
        self.assertEqual(os.stat(self.path("s.orvelrec")).st_size, before)

    def test_a_recorder_that_is_killed_leaves_what_it_had(self):
        bell = "be\u009bll.wav"  # with a control character
        with wave.open(self.path(bell), "wb") as file:
            file.setparams((1, 2, 8000, 0, "NONE", ""))
            file.writeframes(bytes(1600))
        url = "file://" + self.path("ring.wav")
        shutil.copy(self.path(bell), self.path("ring.wav"))
        bank = self.scene(changed(LEFT, sources=[
            *LEFT["sources"], {"id": 2, "file": bell}, {"id": 3, "url": url}]), "bank.json")
        recorder = self.record("--scene", bank, "--render", "live.wav")
        player = self.play("play.log", self.scene(changed(LEFT, duration=0.5)))
        self.assertEqual(player.wait(DEADLINE), 0)
        self.wait_for_text("record.log", "is gone")
        self.wait_for(lambda: any(channels(self.path("live.wav"))[0]), "sound in live.wav")
        recorder.kill()
        recorder.wait()
        self.assertTrue(any(channels(self.path("live.wav"))[0]))
        os.remove(self.path(bell))
        err = self.run_tool("play", "s.orvelrec", "--backend", "silent", code=1)[1]
        self.assertRegex(err, r"bank\.json:\d+: sources\[1\]\.file: .*be\\xc2\\x9bll\.wav.*does not exist")
        self.assertEqual(err.count("is truncated"), 1)
        # A capture is untrusted, so nothing is fetched because of it.
        self.run_tool("render", "s.orvelrec", "o.wav", code=1)
        self.assertTrue(any(channels(self.path("o.wav"))[0]))
        self.assertIn("give --fetch", err)
        os.remove(self.path("ring.wav"))
        err = self.run_tool("render", "--fetch", "s.orvelrec", "o.wav", code=1)[1]
        self.assertRegex(err, r"sources\[2\]\.url: .*ring\.wav")

    def test_a_recording_ends_before_the_disk_is_full(self):
        alone = ["unshare", "-rm", "sh", "-c"]
        if subprocess.run([*alone, "mount -t tmpfs none /tmp"], check=False).returncode != 0:
            self.skipTest("no namespaces here")
        os.mkdir(self.path("disk"))
        recorder = self.background(
            "record.log", "record", "disk/s.orvelrec", "--osc", "0", "--port", self.port,
            *self.here, prefix=[*alone, """mount -t tmpfs -o size=8m none disk &&
                head -c 7m /dev/zero > disk/other && { "$@";
                "$1" play disk/s.orvelrec --backend silent && df --output=avail disk; }""", "sh"])
        self.wait_for_text("record.log", "orvel: serving")
        osc = re.search(r"Control at 127\.0\.0\.1:(\d+)", self.read("record.log"))[1]
        message = b"/orvel/enabled\0\0,i\0\0\0\0\0\1"
        # The recorder may have ended and closed the connection before everything is sent.
        with contextlib.suppress(ConnectionError), \
                socket.create_connection(("127.0.0.1", int(osc))) as sender:
            sender.sendall((len(message).to_bytes(4, "big") + message) * 100000)
        self.assertEqual(recorder.wait(DEADLINE), 0, self.read("record.log"))
        self.assertRegex(self.read("record.log"), r"disk is almost full; the recording stops here "
                         r"and can be played\n(?s:.*) events; part of.*\nAvail\n +[1-9]\d+\n$")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
