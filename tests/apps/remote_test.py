"""Servers and players of the tool as processes on the loopback interface:
remote_test.py TOOL COMPARE [unittest arguments]."""

import array
import contextlib
import json
import os
import signal
import socket
import statistics
import struct
import subprocess
import sys
import unittest

from remote_case import RemoteCase
from synchrony_test import EMITTER, Server, differences
from tool_case import DEADLINE, LEFT, changed, channels, free_port, levels

COMPARE = os.path.abspath(sys.argv[2])

LOOPED = changed(LEFT, sources=[{**LEFT["sources"][0], "loop": True}], duration=1000)
MOVING = changed(
    LEFT, duration=2.2, sources=[{"id": 1, "tone": {"hertz": 441, "seconds": 2}}],
    timeline=[{"at": 0.8, "emitter": 11, "position": [2, 0, 0], "over": 0.3},
              {"at": 1.1, "world": True, "enabled": False},
              {"at": 1.5, "world": True, "enabled": True},
              {"at": 1.5, "emitter": 11, "gain": 0.3}])


class Remote(RemoteCase):
    def test_the_server_hears_what_a_rendering_holds(self):
        scene = self.scene(MOVING)
        self.run_tool("render", scene, "local.wav")
        server = self.serve("serve.log", "--scene", scene, "--render", "remote.wav")
        player = self.play("play.log", scene)
        self.assertEqual(player.wait(DEADLINE), 0)
        self.wait_for_text("serve.log", "is gone")
        self.end(server, "serve.log")
        compared = subprocess.run(
            [sys.executable, COMPARE, self.path("local.wav"), self.path("remote.wav")],
            capture_output=True, text=True, timeout=DEADLINE, check=False)
        self.assertEqual(compared.returncode, 0, compared.stdout + compared.stderr)
        # Nothing else is reported; the table of levels follows.
        self.assertRegex(self.read("play.log"),
                         r"^orvel: server 127\.0\.0\.1:\d+ is connected\n$")
        self.assertRegex(self.read("serve.log"),
                         r"^orvel: serving.*\n.* --open .*\norvel: client \S+ is connected\n"
                         r"orvel: client \S+ is gone: .*\n  second   left peak")

    def test_servers_come_late_vanish_and_come_back(self):
        over = {**LEFT["emitters"][0], "id": 12, "source": 2, "position": [2, 0, 0]}
        scene = self.scene(changed(
            LOOPED, sources=[*LOOPED["sources"], {"id": 2, "tone": {"seconds": 0.2}}],
            emitters=[*LOOPED["emitters"], over]))
        player = self.play("play.log", scene)
        self.wait_for_text("play.log", "no server has been found yet")
        first = self.serve("first.log", "--scene", scene, "--backend", "silent", "--id", "7")
        self.wait_for_text("play.log", ", id 7, is connected")
        listed = []

        def is_listed():
            search = self.start("servers", "--json", "--port", self.port, *self.here, "--seconds", "0.3")
            listed[:] = json.loads(search.communicate(timeout=DEADLINE)[0])["servers"]
            return listed
        self.wait_for(is_listed, "a server that answers")
        self.assertEqual([(s["id"], s["address"]) for s in listed], [(7, "127.0.0.1")])
        self.assertIn(f"port {listed[0]['port']};", self.read("first.log"))
        self.assertGreater(listed[0]["roundTripMs"], 0)
        first.kill()
        self.wait_for_text("play.log", "is gone")
        # The next one is told the whole scene, without what is over (and would be on the right);
        # and what a player that dies has made goes with it.
        second = self.serve("second.log", "--scene", scene, "--render", "o.wav")
        self.wait_for_text("play.log", "is connected", 2)

        def is_heard():
            with open(self.path("o.wav"), "rb") as file:
                data = file.read()[44:]
            samples = array.array("h", data[:len(data) // 4 * 4])[::2]
            return sum(abs(s) > 100 for s in samples) > 0.5 * 44100
        self.wait_for(is_heard, "half a second of sound")
        player.kill()
        self.wait_for_text("second.log", "is gone")
        self.wait_for_sound("o.wav", 0.5)
        self.end(second, "second.log", signal.SIGINT)
        left, right = levels(self.path("o.wav"))
        self.assertGreater(left, right + 20)
        samples = channels(self.path("o.wav"))[0]
        loud = [i for i, s in enumerate(samples) if abs(s) > 100]
        self.assertGreater((loud[-1] - loud[0]) / 44100, 0.4)
        self.assertGreater(len(samples) - loud[-1], 0.2 * 44100)

    def test_sounds_here_are_as_late_as_on_servers(self):
        self.scene({
            "orvel": 1, "sources": [{"id": 1, "tone": {"hertz": 2205, "seconds": 0.1}}],
            "emitters": [{"id": 11, "source": 1, "position": [0, 0, -1], **EMITTER}],
            "timeline": [{"at": 0.5 + i * 0.2, "emitter": 11, "state": state}
                         for i in range(10) for state in ("stop", "play")]})
        server = self.serve("a.log", "--scene", "scene.json", "--render", "a.wav", "-v")
        player = self.background(
            "p.log", "play", "scene.json", "--render", "p.wav", "-v", "--backend",
            "client:latency=300 port=" + self.port, *self.here)
        self.assertEqual(player.wait(DEADLINE), 0, self.read("p.log"))
        self.end(server, "a.log")
        found = differences([Server(self, name, 0, 0) for name in "ap"], "onsets")
        self.assertEqual(len(found), 9)  # all but the last
        self.assertLess(statistics.median(difference for difference, _ in found), 0.05)

    def test_sources_are_there_again_for_each_round_and_each_player(self):
        scene = self.scene(changed(LEFT, duration=0.3, sources=[
            {"id": 1, "tone": {"seconds": 0.1}}, {"id": 5, "tone": {"seconds": 0.1}}]))
        bank = self.scene(changed(LEFT, sources=[{"id": 1, "tone": {"seconds": 0.1}}]), "bank.json")
        port = free_port(socket.SOCK_STREAM)
        server = self.serve("serve.log", "--scene", bank, "--render", "o.wav", "--tcp-port", port)
        taken = self.background("taken.log", "serve", "--backend", "silent", "--tcp-port", port,
                                *self.here)
        self.assertEqual(taken.wait(DEADLINE), 1)
        self.assertIn(f"port {port}: Address already in use", self.read("taken.log"))
        for count, arguments in [(1, ["--loop", "--seconds", "0.8"]), (2, [])]:
            player = self.background("play.log", "play", scene, "--backend", "client:port=" + free_port(),
                                     "--server", "localhost:" + port, *self.here, *arguments)
            self.assertEqual(player.wait(DEADLINE), 0, self.read("play.log"))
            self.wait_for_text("serve.log", "is gone", count)
        self.end(server, "serve.log")
        samples = channels(self.path("o.wav"))[0]
        rounds = [i for i, s in enumerate(samples) if s and not any(samples[max(0, i - 441):i])]
        self.assertEqual(len(rounds), 4, rounds)
        # Only missing sources are reported, once.
        self.assertEqual(self.read("serve.log").count("missing sources: 5;"), 1)
        self.assertNotIn("invalid", self.read("serve.log"))

    def test_one_player_drives_at_a_time(self):
        scene = self.scene(LOOPED)
        self.serve("serve.log", "--scene", scene, "--id", "stage", env={"ALSOFT_DRIVERS": "null"})
        first = self.play("first.log", scene)
        self.wait_for_text("serve.log", "is connected")
        waiting = self.play("waiting.log", scene, "--wait", "--only", "stage")
        self.assertEqual(first.wait(DEADLINE), 1)
        self.assertIn("replaced: client", self.read("first.log"))
        self.assertRegex(self.read("serve.log"), r"client \S+ drives now, in place of client ")
        # It neither takes over nor exits until the third one leaves.
        third = self.play("third.log", scene)
        self.wait_for_text("serve.log", "drives now", 2)
        self.end(third, "third.log")
        self.wait_for_text("waiting.log", "driving it now")
        self.end(waiting, "waiting.log", signal.SIGINT)
        self.assertEqual(self.read("waiting.log").count("replaced"), 1)
        self.assertEqual(self.read("serve.log").count("drives now"), 3)
        self.assertNotIn("sense", self.read("serve.log"))

    def test_players_are_turned_away(self):
        scene = self.scene(LOOPED)
        for options, arguments, connects, reason in [
                (["--keep-player"], [], True, "refused: client"),
                (["--allow", "10.0.0.0/8", "--allow", "127.0.0.2"], [], False,
                 "does not take connections from"),
                (["--id", "a", "--allow", "127.0.0.0/8"], ["--only", "b", "--seconds", "1"], False,
                 "no server was found")]:
            self.port = free_port()
            server = self.serve("serve.log", "--backend", "silent", *options)
            first = self.play("first.log", scene)
            if connects:
                self.wait_for_text("serve.log", "is connected")
            player = self.play("play.log", scene, *arguments)
            self.wait_for_text("play.log", reason)
            if not connects and not arguments:  # it searches on
                player.terminate()
            self.assertEqual(player.wait(DEADLINE), 1, self.read("play.log"))
            self.assertIn(reason, self.read("play.log"))
            self.assertEqual("connected" in self.read("play.log"), connects)
            self.assertEqual(first.poll(), None)
            first.kill()
            self.end(server, "serve.log")

    def test_a_hostile_client_is_held_to_limits(self):
        def event(kind, command, number, fields=b""):
            body = struct.pack("<hhBhBh", kind, 3378, 5, command, 5, number) + fields
            return struct.pack("<I", len(body)) + body

        def create(number, *labels):
            return event(202, 30, number, struct.pack("<BI", 3, len(labels)) + b"".join(
                struct.pack("<BI", 1, len(label)) + label for label in labels))

        scene = self.scene(LOOPED)
        port = free_port(socket.SOCK_STREAM)
        self.serve("serve.log", "--scene", scene, "--backend", "log", "--tcp-port", port)
        reset = event(200, 10, 0)
        with socket.create_connection(("127.0.0.1", int(port))) as client:
            client.sendall(b"ORVELNET" + struct.pack("<HHQh", 2, 0, 7, 0) + reset)
            for number, labels in [(0, []), (-1, []), (7, [b"x"] * 65), (8, [b"x" * 4097]),
                                   (9, [b"x"] * 64), (10, [b"x" * 4096])]:
                client.sendall(create(number, *labels) + event(200, 36, number))
            with contextlib.suppress(ConnectionError):  # because of the drop
                for _ in range(500):
                    client.sendall(create(11) + event(200, 21, 1) + reset)
            self.wait_for_text("serve.log", "is dropped: more than 100 resets in 10 s")
        log = self.read("serve.log")
        for number, reason in [(0, "ids"), (-1, "ids"), (7, "it has"), (8, "it has")]:
            self.assertEqual(log.count(f"refused emitter {number} of a client: {reason}"), 1, log)
        self.assertEqual(log.count("refused emitter"), 4)
        self.assertEqual(log.count("createSource"), 1)  # its sound is kept
        self.assertLess(log.count("createEmitter"), 110)
        self.assertNotIn("invalid event", log)

    def test_systemd_is_told(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            manager.bind(self.path("notify"))
            manager.settimeout(DEADLINE)
            server = self.serve("serve.log", "--backend", "silent", env={
                "NOTIFY_SOCKET": self.path("notify"), "WATCHDOG_USEC": "1000"})
            self.assertEqual([manager.recv(100) for _ in range(3)],
                             [b"READY=1", b"WATCHDOG=1", b"WATCHDOG=1"])
            server.terminate()
            while manager.recv(100) != b"STOPPING=1":
                pass
            self.assertEqual(server.wait(DEADLINE), 0)

    def test_it_says_whether_clients_find_it(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
            other.bind(("", int(self.port)))
            self.serve("serve.log", "--backend", "silent", "--id", "ab", "--interface", "none0", "--open")
            self.assertRegex(self.read("serve.log"),
                             r"serving, id 195 \(ab\), at TCP port \d+; clients cannot find it on lo "
                             r"127\.0\.0\.1 \(.*\), none0 \(no interface of .*stop it, or")
        self.wait_for_text("serve.log", "now clients find it through")

    def test_silence_is_explained(self):
        for arguments in ([], ["--json"]):
            out, err = self.run_tool("servers", "--port", self.port, *self.here, "--seconds", "0.1",
                                     *arguments, code=1)
            self.assertEqual(json.loads(out)["servers"] if out else [], [])
            self.assertIn(f"UDP port {self.port}, TTL 1, on:\n  lo 127.0.0.1\n", err)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
