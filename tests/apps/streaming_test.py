"""The output of a scene as a stream to other programs: streaming_test.py TOOL [unittest arguments]."""

import array
import os
import re
import shutil
import socket
import subprocess
import sys
import unittest
import wave

from tool_case import DEADLINE, LEFT, ToolCase, changed, free_port, rms_dB

FRAME = 4  # bytes
RATE = 44100
SOUND = {**LEFT["sources"][0], "loop": True}


class Pipes(ToolCase):
    def test_a_slow_reader_stops_nothing_and_its_loss_is_counted(self):
        scene = self.scene(changed(LEFT, sources=[SOUND], duration=1.5, timeline=[
            {"at": 1.2, "emitter": 11, "gain": 0.5}]))
        with open(self.path("log"), "w", encoding="utf-8") as log:
            player = self.start("play", scene, "--backend", "log", "--render", "-", "--render-raw",
                                stdout=subprocess.PIPE, stderr=log, text=False)
        self.addCleanup(player.wait)
        self.addCleanup(player.kill)
        # At the start and at 1.2 s, although nothing is read.
        self.wait_for(lambda: self.read("log").count("setEmitterParam") == 2, "the scene")
        sound = player.stdout.read()
        player.stdout.close()
        self.assertEqual(player.wait(DEADLINE), 0)
        log = self.read("log")
        self.assertIn("is too slow", log)
        missed = float(re.search(r"it missed (\S+) s", log).group(1))
        whole = float(re.search(r"standard output: (\S+) s", log).group(1))
        self.assertAlmostEqual(len(sound) / FRAME / RATE + missed, whole, delta=0.02)
        self.assertGreater(missed, 0.3)

    def test_each_reader_of_a_fifo_gets_the_header_first(self):
        os.mkfifo(self.path("fifo"))
        player = self.background("log", "serve", "--interface", "127.0.0.1", "--port", free_port(),
                                 "--render", "fifo", "--render-rate", "48000")

        def begins():
            with open(self.path("fifo"), "rb") as reader:
                header = reader.read(44)
            return (header[:4], header[24:28]) == (b"RIFF", b"\x80\xbb\0\0")
        self.assertTrue(begins())
        self.wait_for(begins, "the header")  # once it has noticed that the first one is gone
        self.assertIsNone(player.poll())

    def test_it_is_the_mix_of_the_named_back_end(self):
        self.run_tool("play", self.scene(LEFT), "--backend", "voices:output=mono", "--render", "o.wav",
                      "--seconds", "0.1", env={"ALSOFT_DRIVERS": "null"})
        with wave.open(self.path("o.wav")) as file:
            self.assertEqual(file.getnchannels(), 1)

    def test_the_end_of_standard_output_ends_it(self):
        player = self.start("play", self.scene(changed(LEFT, duration=1000)), "--render", "-",
                            text=False)
        player.stdout.read(100)
        player.stdout.close()
        self.assertIn(b"has gone", player.stderr.read())
        player.stderr.close()
        self.assertEqual(player.wait(DEADLINE), 1)


class Snapcast(ToolCase):
    def test_it_is_heard_in_another_room(self):
        os.mkfifo(self.path("fifo"))
        port = free_port(socket.SOCK_STREAM)

        def begin(*command):
            with open(self.path(command[0] + ".log"), "wb") as log:
                process = subprocess.Popen(command, cwd=self.folder, stdout=log, stderr=log,
                                           env={**os.environ, "HOME": self.folder})
            self.addCleanup(process.wait)
            self.addCleanup(process.kill)
        self.background("log", "play", self.scene(changed(LEFT, sources=[SOUND], duration=1000)),
                        "--render", "fifo", "--render-raw", "--render-rate", "48000")
        begin("snapserver", "-c", "/dev/null", "--server.datadir=" + self.folder,
              "--tcp.enabled=false", "--http.enabled=false",
              "--stream.bind_to_address=127.0.0.1", "--stream.port=" + port, "--stream.buffer=400",
              "--stream.codec=pcm",
              f"--stream.source=pipe://{self.path('fifo')}?name=orvel&sampleformat=48000:16:2&mode=read")
        begin("snapclient", "-h", "127.0.0.1", "-p", port, "--player",
              "file:filename=" + self.path("heard"))

        def sounds():
            if not os.path.exists(self.path("heard")):
                return False
            with open(self.path("heard"), "rb") as file:
                data = file.read()
            samples = array.array("h", data[:len(data) // FRAME * FRAME])[-24000:]  # 0.25 s
            return abs(rms_dB(samples[::2]) + 9.03) < 0.5 and not any(samples[1::2])
        self.wait_for(sounds, "the sound")


if __name__ == "__main__":
    if sys.argv[2:] == ["Snapcast"] and None in (shutil.which("snapserver"), shutil.which("snapclient")):
        print("skipped: Snapcast is not installed; scripts/install-deps.sh installs it")
        sys.exit(77)
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]])
