"""Shared by the tests of servers and players on the loopback interface."""

import os
import signal

from tool_case import DEADLINE, ToolCase, free_port


class RemoteCase(ToolCase):
    def setUp(self):
        super().setUp()
        self.port = free_port()
        self.here = ["--interface", "lo"]

    def serve(self, log, *arguments, env=None):
        server = self.background(log, "serve", "--port", self.port, *self.here, *arguments, env=env)
        self.wait_for_text(log, "orvel: serving")
        return server

    def play(self, log, scene, *arguments):
        return self.background(log, "play", scene, "--backend", "client:port=" + self.port,
                               *self.here, *arguments)

    def end(self, process, log, number=signal.SIGTERM):
        process.send_signal(number)
        self.assertEqual(process.wait(DEADLINE), 0, self.read(log))

    def wait_for_sound(self, recording, seconds):
        """Waits until a server has written so much more of a recording."""
        def size():
            return os.path.getsize(self.path(recording))
        end = size() + seconds * 44100 * 4
        self.wait_for(lambda: size() >= end, f"{seconds} s in {recording}")
