"""Open Sound Control from an external client, oscsend:
osc_test.py TOOL DOCS [unittest arguments]."""

import fcntl
import itertools
import json
import os
import pty
import re
import select
import shutil
import signal
import socket
import subprocess
import sys
import termios
import time
import unittest
import urllib.error
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

    def test_the_keys_of_a_terminal_play_cues_and_leave_it_as_it_was(self):
        scene = self.scene(changed(LOOPED, duration=1000, cues=[{"name": "rain", "at": 0},
                                                 {"name": "storm", "at": 500}]))
        for last in (b"q", signal.SIGTERM, signal.SIGQUIT, signal.SIGTSTP):
            master, slave = pty.openpty()
            self.addCleanup(os.close, master)
            self.addCleanup(os.close, slave)
            before = termios.tcgetattr(slave)
            process = self.start(
                "play", scene, "--armed", "--backend", "silent", stdin=slave, stdout=slave,
                stderr=slave, start_new_session=True,
                preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
            self.addCleanup(process.wait)
            self.addCleanup(process.kill)

            def shows(text, master=master):
                shown = ""
                while text not in shown:
                    self.assertTrue(select.select([master], [], [], DEADLINE)[0], shown)
                    shown += os.read(master, 4096).decode()

            def is_restored(slave=slave, before=before):
                return termios.tcgetattr(slave) == before
            shows("waiting  0:00.0")
            self.assertFalse(is_restored())
            for keys, line in ((b" ", "playing rain"), (b"st\t\n", "playing storm  8:20."),
                               (b"\n", "paused storm"), (b"\x1b[A\n", "playing storm"),
                               (b"hail\n", 'there is no cue "hail"')):
                os.write(master, keys)
                shows(line)
            if last == signal.SIGTSTP:
                process.send_signal(last)
                self.wait_for(is_restored, "it to stop")
                process.send_signal(signal.SIGCONT)
                self.wait_for(lambda: not is_restored(), "it to go on")
            elif last != b"q":
                process.send_signal(last)
            if last in (b"q", signal.SIGTSTP):
                os.write(master, b"q")
            self.assertEqual(process.wait(DEADLINE), -last if last == signal.SIGQUIT else 0)
            self.assertTrue(is_restored(), last)
        self.run_tool("play", scene, "--armed", "--backend", "silent", code=2)

    def test_the_tree_of_paths_is_described_over_http(self):
        player = self.start_taking("play.log", "play", self.scene(changed(
            LOOPED, cues=[{"name": 'a"b', "at": 0}])), "--backend", "silent", "--osc-query", "0")
        self.wait_for_text("play.log", "describing its paths at ")
        url = re.search(r"paths at (\S+)/", self.read("play.log"))[1]

        def get(path):
            with urllib.request.urlopen(url + path, timeout=DEADLINE) as answer:
                text = answer.read()
                return json.loads(text) if answer.status == 200 else answer.status
        self.assertEqual(get("/?HOST_INFO")["OSC_PORT"], int(self.osc))
        methods = {}

        def collect(node, path):
            self.assertEqual(node["FULL_PATH"], path or "/")
            if "TYPE" in node:
                self.assertTrue(node["DESCRIPTION"], path)
                methods[path] = node
            for name, below in node.get("CONTENTS", {}).items():
                collect(below, f"{path}/{name}")
        collect(get("/"), "")
        self.assertEqual(
            {key: methods["/adm/obj/11/xyz"][key] for key in ("TYPE", "ACCESS", "RANGE", "VALUE")},
            {"TYPE": "fff", "ACCESS": 3, "RANGE": [{"MIN": -1, "MAX": 1}] * 3,
             "VALUE": [-0.2, 0, 0]})
        self.assertEqual((methods["/orvel/go"]["TYPE"], methods["/orvel/go"]["ACCESS"]), ("N", 2))
        self.assertEqual(methods["/orvel/state"]["ACCESS"], 1)
        self.assertIn('/orvel/cue/a"b', methods)
        self.assertLess({"/orvel/cue", "/orvel/enabled", "/orvel/source/1/loop"}, set(methods))
        self.assertEqual(get("/adm/obj/11/gain?VALUE"), {"VALUE": [1]})
        self.assertEqual(list(get("/adm/obj")["CONTENTS"]), ["11"])
        self.assertEqual(get("/orvel/go?VALUE"), 204)
        for path, status in (("/adm/obj/12/gain", 404), ("/adm/obj/11/gain?LOUD", 400)):
            with self.assertRaises(urllib.error.HTTPError) as fault:
                get(path)
            self.assertEqual(fault.exception.code, status)
            fault.exception.close()
        self.end(player, "play.log")

    def test_every_path_of_the_documentation_is_taken_and_answered(self):
        with open(os.path.join(DOCS, "osc.md"), encoding="utf-8") as file:
            page = file.read()
        rows = [[cell.strip() for cell in row.split("|")] for row in page.splitlines()
                if row.startswith(("| `/adm/", "| `/orvel/"))]
        replies, port = self.listener()
        scene = changed(LOOPED, cues=[{"name": "NAME", "at": 0}, {"name": "1", "at": 500},
                                      {"name": "2", "at": 600}])
        player = self.start_taking("doc.log", "play", self.scene(scene), "--backend", "silent",
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
