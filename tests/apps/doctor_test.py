"""`orvel doctor` on the loopback interface: doctor_test.py TOOL [unittest arguments]."""

import json
import os
import socket
import sys
import unittest

from remote_case import RemoteCase
from tool_case import DEADLINE, LEFT, changed, free_port

NULL = {"ALSOFT_DRIVERS": "null"}


class Doctor(RemoteCase):
    def examine(self, *arguments, code=0, env=None):
        out = self.run_tool("doctor", "--json", "--port", self.port, *self.here, *arguments,
                            code=code, env={**NULL, **(env or {})})[0]
        found = json.loads(out)
        self.assertEqual(found["verdict"] == "problem", code == 1)
        for check in found["checks"]:
            # Every problem comes with advice.
            self.assertTrue(check["verdict"] == "ok" or check["advice"], check)
        return {check["check"]: check for check in found["checks"]}

    def test_a_sound_network_and_its_server_are_measured(self):
        tcp = free_port(socket.SOCK_STREAM)
        server = self.serve("serve.log", "--backend", "silent", "--id", "7", "--tcp-port", tcp)
        found = self.examine()
        self.assertEqual(found["multicast lo"]["verdict"], "ok")
        self.assertIn("synchronised", found["clock"]["text"])
        self.assertGreater(found["multicast lo"]["values"]["roundTripMs"], 0)
        there = found[f"server 127.0.0.1:{tcp}"]
        self.assertEqual((there["verdict"], there["values"]["id"]), ("ok", 7))
        for value in ("clockSeconds", "roundTripMs", "connectMs"):
            self.assertGreater(there["values"][value], 0)
        timing = found[f"timing 127.0.0.1:{tcp}"]["values"]
        self.assertGreater(timing["answers"], 1)
        self.assertEqual(timing["answers"], timing["queries"])
        self.assertLess(timing["jitterMs"], timing["greatestRoundTripMs"])
        self.assertIn("in use by servers", found["port " + self.port]["text"])
        self.assertGreater(found["sound timing"]["values"]["latencyMs"], 0)
        self.assertIn("""--backend 'voices:device="No Output"'""", found["sound device"]["text"])
        # A device without output is reported as such.
        self.assertEqual(found["sound output"]["verdict"], "warning")
        self.end(server, "serve.log")
        self.assertEqual(self.read("serve.log").count("\n"), 2)  # it has not noticed

    def test_what_is_wrong_is_a_problem(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as stranger, \
                socket.socket(socket.AF_INET, socket.SOCK_STREAM) as other:
            stranger.bind(("0.0.0.0", int(self.port)))
            other.bind(("127.0.0.1", 0))
            other.listen()
            taken = str(other.getsockname()[1])
            found = self.examine("--check-port", taken, code=1)
            for check in ("port " + self.port, "port " + taken, "multicast lo"):
                self.assertEqual(found[check]["verdict"], "problem", found[check])
            self.assertIn("TCP: Address already in use", found["port " + taken]["text"])
        found = self.examine(code=1, env={"ALSOFT_DRIVERS": "none-of-them"})
        self.assertEqual(found["sound output"]["text"], "no sound device can be opened")

    def test_a_service_waits_for_what_is_missing(self):
        with open(self.path("alsoft.conf"), "w", encoding="ascii") as file:
            file.write(f"drivers=wave\n[wave]\nfile={self.path('card')}/out.raw\n")
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as systemd:
            systemd.bind(self.path("notify"))
            systemd.settimeout(DEADLINE)
            server = self.background(
                "serve.log", "serve", "--wait-for-device", "--scene", "later.json",
                "--port", self.port, *self.here, env={
                    "ALSOFT_CONF": self.path("alsoft.conf"), "ALSOFT_DRIVERS": "",
                    "NOTIFY_SOCKET": self.path("notify")})
            self.assertIn(b"EXTEND_TIMEOUT_USEC=", systemd.recv(4096))
            self.wait_for_text("serve.log", "waiting for later.json")
            os.rename(self.path(self.scene(changed(LEFT, timeline=[
                {"at": 0, "source": 3, "create": True, "file": "later.wav"}]))),
                self.path("later.json"))
            self.wait_for_text("serve.log", "later.wav")
            self.run_tool("render", self.scene(LEFT, "left.json"), "later.wav")
            self.wait_for_text("serve.log", "waiting for a sound device")
            os.mkdir(self.path("card"))
            while b"READY=1" not in systemd.recv(4096):
                pass
        self.end(server, "serve.log")
        self.assertEqual(self.read("serve.log").count("\n"), 5)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]])
