"""The example's sound server is heard when the tool plays a scene to it, both on the loopback
interface: sound_server_test.py TOOL EXAMPLE. OpenAL writes what it plays to a file."""

import array
import os
import subprocess
import sys
import unittest

from tool_case import DEADLINE, LEFT, ToolCase, changed, free_port, rms_dB


class SoundServer(ToolCase):
    def test_it_is_heard(self):
        port = free_port()
        with open(self.path("alsoft.conf"), "w", encoding="utf-8") as file:
            file.write("[general]\nchannels = stereo\nsample-type = int16\n"
                       f"[wave]\nfile = {self.path('heard.wav')}\n")
        server = subprocess.Popen([sys.argv[2], "127.0.0.1", port], env={
            **os.environ, "ALSOFT_DRIVERS": "wave", "ALSOFT_CONF": self.path("alsoft.conf")})
        self.addCleanup(server.wait)
        self.addCleanup(server.kill)
        # The server's own source 1 is a voice.
        self.run_tool("play", self.scene(changed(LEFT, duration=2)), "--interface", "127.0.0.1",
                      "--backend", "client:port=" + port)
        server.terminate()
        server.wait(DEADLINE)
        with open(self.path("heard.wav"), "rb") as file:
            # The file's header is incomplete, because the file was not closed.
            data = file.read().partition(b"data")[2][4:]
        samples = array.array("h", data[:len(data) // 4 * 4])
        self.assertGreater(rms_dB(samples[::2]), -60)
        self.assertGreater(rms_dB(samples[::2]), rms_dB(samples[1::2]) + 6)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
