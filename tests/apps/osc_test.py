"""Open Sound Control from an external client, oscsend:
osc_test.py TOOL DOCS [unittest arguments]."""

import itertools
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import time
import unittest
import urllib.request

from remote_case import RemoteCase
from tool_case import DEADLINE, LEFT, changed, channels, free_port, rms_dB

DOCS = os.path.abspath(sys.argv[2])
LOOPED = changed(LEFT, sources=[{**LEFT["sources"][0], "loop": True}])


class Osc(RemoteCase):
    def setUp(self):
        super().setUp()
        self.assertTrue(shutil.which("oscsend"), "install liblo-tools: scripts/install-deps.sh")

    def start_taking(self, log, *arguments):
        process = self.background(log, *arguments, "--osc", "0")
        self.wait_for_text(log, "Open Sound Control at ")
        self.osc = re.search(r"Control at 127\.0\.0\.1:(\d+)", self.read(log))[1]
        return process

    def listener(self):
        """Starts a client that prints what it receives; returns its log and its port."""
        port = str(free_port())
        with open(self.path("oscdump.log"), "wb") as out:
            dump = subprocess.Popen(["oscdump", "-L", port], stdout=out, stderr=subprocess.STDOUT)
        self.addCleanup(dump.wait)
        self.addCleanup(dump.terminate)
        return "oscdump.log", port

    def send(self, path, *arguments, protocol="tcp"):
        subprocess.run(["oscsend", f"osc.{protocol}://127.0.0.1:{self.osc}", path, *arguments],
                       check=True, timeout=DEADLINE)

    def test_a_scene_is_heard_where_messages_put_it(self):
        scene = self.scene(LOOPED)
        server = self.start_taking(
            "serve.log", "record", "s.orvelrec", "--scene", scene, "--render", "o.wav",
            "--port", self.port, *self.here)
        self.send("/orvel/emitter/11/create", protocol="udp")
        self.send("/orvel/emitter/11/hull", "ffff", "50", "50", "10", "10")
        self.send("/orvel/emitter/11/source", "i", "1")
        self.send("/adm/obj/11/xyz", "fff", "-1", "0", "0")
        self.send("/orvel/emitter/11/play")
        self.wait_for_sound("o.wav", 0.4)
        self.send("/adm/obj/11/aed", "fff", "-90", "0", "1")
        self.wait_for_sound("o.wav", 0.4)
        self.send("/adm/obj/11/azim", "f", "0")
        self.wait_for_sound("o.wav", 0.4)
        self.send("/orvel/emitter/11/gain", "f", "0.1")
        self.wait_for_sound("o.wav", 0.4)
        self.send("/nonsense")
        self.end(server, "serve.log")
        self.assertIn("OSC: 9 messages, 1 invalid", self.read("serve.log"))
        # The capture has it too.
        self.run_tool("render", "s.orvelrec", "again.wav")
        for name in ("o.wav", "again.wav"):
            sides = channels(self.path(name))
            kinds = []
            for begin in range(0, len(sides[0]) - 2205, 2205):
                left, right = (rms_dB(side[begin:begin + 2205]) for side in sides)
                kinds.append("silent" if max(left, right) < -60 else
                             "left" if left > right + 20 else
                             "right" if right > left + 20 else
                             "between" if abs(left - right) > 1 else
                             "soft" if left < -25 else "ahead")
            # A position lasts for some windows; a window with a change in it can have any level.
            held = [kind for kind, run in itertools.groupby(kinds) if len(list(run)) >= 3]
            heard = [kind for kind in held if kind != "silent"]
            self.assertEqual(heard, ["left", "right", "ahead", "soft"], name)

    def test_an_idle_server_sleeps_and_wakes_for_each_that_comes(self):
        server = self.start_taking("serve.log", "serve", "--backend", "log", "--monitor",
                                   "127.0.0.1:0", "--port", self.port, *self.here)
        self.wait_for_text("serve.log", "orvel: serving")

        def wakes():
            with open(f"/proc/{server.pid}/status", encoding="ascii") as status:
                return int(re.search(r"\nvoluntary_ctxt_switches:\s+(\d+)", status.read())[1])
        before, begin = wakes(), time.monotonic()
        time.sleep(1)  # of idleness
        self.assertLess(wakes() - before, 30 * (time.monotonic() - begin))
        url = re.search(r"monitor is at (\S+)", self.read("serve.log"))[1]
        deadline = time.monotonic() + DEADLINE
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            for count in range(1, 201):  # in an idle loop they would take 40 s each
                sender.sendto(b"/orvel/enabled\0\0,i\0\0\0\0\0\1", ("127.0.0.1", int(self.osc)))
                self.wait_for_text("serve.log", "setEnabled", count)
                urllib.request.urlopen(url + "api/status", timeout=DEADLINE).close()
        self.assertLess(time.monotonic(), deadline)

    def test_changes_are_sent_to_the_receiver_of_feedback(self):
        changes, port = self.listener()
        server = self.start_taking("serve.log", "serve", "--backend", "silent", "--port",
                                   self.port, *self.here, "--osc-feedback", f"localhost:{port}")
        self.send("/adm/obj/11/aed", "fff", "90", "0", "0.5")
        self.wait_for_text(changes, "/adm/obj/11/xyz fff -0.5")
        self.end(server, "serve.log")

    def test_the_port_is_for_this_machine_only_and_is_named_when_taken(self):
        scene = self.scene(LOOPED)
        player = self.start_taking("play.log", "play", scene, "--backend", "silent")
        for kind in ("tcp", "udp"):
            with open(f"/proc/{player.pid}/net/{kind}", encoding="ascii") as table:
                bound = [line.split()[1] for line in table
                         if line.split()[1].endswith(f":{int(self.osc):04X}")]
            self.assertEqual(bound, [f"0100007F:{int(self.osc):04X}"])
        err = self.run_tool("play", scene, "--backend", "silent", "--osc", self.osc, code=1)[1]
        self.assertRegex(err, f"127.0.0.1:{self.osc}: Address already in use; choose another --osc")

    def test_every_path_of_the_documentation_is_taken_and_answered(self):
        with open(os.path.join(DOCS, "osc.md"), encoding="utf-8") as file:
            page = file.read()
        rows = [[cell.strip() for cell in row.split("|")] for row in page.splitlines()
                if row.startswith(("| `/adm/", "| `/orvel/"))]
        replies, port = self.listener()
        player = self.start_taking("doc.log", "play", self.scene(LOOPED), "--backend", "silent",
                                   "--osc-reply-port", port)
        sent, expected = 0, []
        for _, names, arguments, _, _, answer, _ in rows:
            numbers = arguments.split(",")[0]
            types = {"none": "", "texts": "", "text": "s", "1": "f"}.get(
                numbers, "f" * len(numbers.split()))
            for path in re.findall(r"`(/[^`]+)`", names):
                part = {"create": "99", "destroy": "99"}.get(
                    path.split("/")[-1], "1" if "/source/N/" in path else "11")
                path = path.replace("/N/", f"/{part}/")
                self.send(path, *[types] * bool(types), *["1"] * len(types))
                sent += 1
                if answer:
                    self.send(path, protocol="udp")
                    sent += 1
                    expected.append(f"{path} {answer.split('`')[1]}")
                    self.wait_for_text(replies, expected[-1])
        self.end(player, "doc.log")
        self.assertGreater(len(expected), 28)
        self.assertIn(f"OSC: {sent} messages, 0 invalid", self.read("doc.log"))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
