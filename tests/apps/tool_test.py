"""Runs the built tool as a user does: tool_test.py TOOL COMPLETION SCENES [unittest arguments]."""

import json
import math
import os
import re
import signal
import subprocess
import sys
import time
import unittest
import urllib.request
import wave
import xml.etree.ElementTree as ElementTree

from tool_case import DEADLINE, LEFT, TOOL, ToolCase, changed, channels, levels

COMMANDS = ["render", "play", "serve", "record", "servers", "plot", "check", "kinds",
            "doctor"]
COMPLETION, SCENES = (os.path.abspath(path) for path in sys.argv[2:4])


class SoundCase(ToolCase):
    def mono(self, name):
        with wave.open(self.path(name), "wb") as file:
            file.setparams((1, 2, 8000, 0, "NONE", ""))
            file.writeframes(bytes(800))


class Messages(SoundCase):
    def test_wrong_use_is_told_once_with_code_2(self):
        scene = self.scene(LEFT)
        for arguments, expected in [
            ([], "expected one of: " + ", ".join(COMMANDS)),
            (["sing"], 'unknown command "sing"'),
            (["render", scene], "OUT.wav is required"),
            (["render", scene, "o.wav", "--rate", "7999"], "expected 8000 to 192000 Hz"),
            (["render", scene, "o.wav", "--format", "mp3"], "expected s16 or f32"),
            (["render", scene, "o.wav", "--seconds", "nan"], "expected seconds above 0"),
            (["render", scene, "o.wav", "more"], "more"),
            (["play", scene, "--backend", "tuba"],
             'unknown kind "tuba"; expected one of: client, default, log, monitor, openal, play, silent, web'),
            (["play", scene, "--backend", "loopback"], "orvel render scene.json OUT.wav"),
            (["play", scene, "--backend", 'log:labels="a'], "column 8"),
            (["serve", "--backend", "openal:lables=a"], 'of: labels; did you mean "labels"?'),
            (["play", scene, "--server", "a:1"], "add --backend client"),
            (["play", scene, "--server", "a:65536"], "expected HOST:PORT"),
            (["serve", "--backend", "loopback"], "--render OUT.wav"),
            (["serve", "--backend", "client"], "drive itself"),
            (["serve", "--group", "192.0.2.1"], "expected an address from 224.0.0.0"),
            (["servers", "--ttl", "256"], "expected 0 to 255"),
        ]:
            with self.subTest(arguments):
                out, err = self.run_tool(*arguments, code=2)
                self.assertEqual(out, "")
                self.assertIn(expected, err)
                self.assertEqual(err.count("orvel: "), 1, err)

    def test_failures_are_told_with_code_1(self):
        scene = self.scene(LEFT)
        self.scene({"orvel": 1}, "empty.json")
        self.scene(changed(LEFT, duration=80000), "long.json")
        self.mono("mono.wav")
        before = sorted(os.listdir(self.folder))
        for arguments, expected in [
            (["render", "gone.json", "o.wav"], "gone.json"),
            (["render", "empty.json", "o.wav"], "nothing to render"),
            (["render", "long.json", "o.wav"], "do not fit into a WAV file"),
            (["render", scene, "gone/o.wav"], "cannot write gone/o.wav: No such file"),
            (["render", scene, "/dev/full"], "cannot write /dev/full"),
            (["plot", scene, "o.svg", "--levels", "mono.wav"], "expected 2 channels"),
        ]:
            with self.subTest(arguments):
                out, err = self.run_tool(*arguments, code=1)
                self.assertEqual(out, "")
                self.assertIn(expected, err)
                self.assertEqual(sorted(os.listdir(self.folder)), before)

    def test_the_example_scenes_are_right(self):
        for name in sorted(os.listdir(SCENES)):
            with self.subTest(name):
                out, _ = self.run_tool("check", os.path.join(SCENES, name))
                self.assertRegex(out, r": ok \(\d+ sources?, \d+ emitters?, [\d.]+ s\)\n$")


class Outputs(SoundCase):
    def contents(self):
        return {name: open(self.path(name), "rb").read() for name in os.listdir(self.folder)}

    def test_nothing_is_written_over_or_under_a_wrong_name(self):
        for name in ("t.wav", "u.wav"):
            self.mono(name)
        os.link(self.path("t.wav"), self.path("hard.wav"))
        os.symlink("t.wav", self.path("soft.wav"))
        scene = self.scene(changed(LEFT, sources=LEFT["sources"] + [
            {"id": 2, "file": "t.wav"}, {"id": 3, "url": "file://" + self.path("u.wav")}]))
        before = self.contents()
        record = ["record", "--scene", scene]
        for arguments, expected in [
            (["render", scene, scene], "scene.json is the scene itself"),
            (["render", scene, "o.wav", "--plot", "./" + scene], "is the scene itself"),
            (["plot", scene, scene], "is the scene itself"),
            (["plot", scene, "o.wav", "--levels", "o.wav"], "cannot read o.wav"),
            (["plot", scene, "hard.wav"], "is a sound of the scene"),
            (["render", scene, "u.wav"], "is a sound of the scene"),
            (["render", scene, "hard.wav"], "is a sound of the scene"),
            (["serve", "--scene", scene, "--render", "soft.wav"], "is a sound of the scene"),
            ([*record, "s.orvelrec", "--render", "t.wav"], "is a sound of the scene"),
            ([*record, "o.wav"], "only captures (.orvelrec)"),
            (["render", scene, "o.mp3"], "only WAV files (.wav)"),
            (["plot", scene, "o.png"], "only SVG pictures (.svg)"),
            (["render", scene, "o", "--plot", "./o"], "written twice"),
            (["render", scene, "-", "--plot", "-"], "written twice"),
        ]:
            with self.subTest(arguments):
                self.assertIn(expected, self.run_tool(
                    *arguments, code=1 if "--levels" in arguments else 2)[1])
                self.assertEqual(self.contents(), before)

    def test_a_stream_has_a_header_that_is_true(self):
        scene = self.scene(LEFT)
        self.assertEqual(self.run_tool("render", scene, "o.wav")[1], "")
        with open(self.path("pipe.wav"), "wb") as pipe:
            process = self.start("render", scene, "-", stdout=subprocess.PIPE, text=False)
            out, err = process.communicate(timeout=DEADLINE)
            pipe.write(out)
        self.assertIn(b"standard output: 1.00 s", err)
        self.assertEqual(self.contents()["pipe.wav"], self.contents()["o.wav"])
        self.assertTrue(self.run_tool("plot", scene, "-")[0].endswith("</svg>\n"))


class Render(ToolCase):
    def test_the_same_scene_gives_the_same_bytes_and_the_left_is_left(self):
        scene = self.scene(changed(LEFT, timeline=[
            {"at": 0.2, "emitter": 11, "position": [-2, 0, -1], "over": 0.5}]))
        for name in ("a.wav", "b.wav"):
            self.assertEqual(self.run_tool("render", scene, name)[1], "")
        with open(self.path("a.wav"), "rb") as a, open(self.path("b.wav"), "rb") as b:
            self.assertEqual(a.read(), b.read())
        left, right = levels(self.path("a.wav"))
        self.assertGreater(left, right + 20)

    def test_a_change_falls_on_its_frame(self):
        silent = {key: value for key, value in LEFT["emitters"][0].items() if key != "state"}
        scene = self.scene(changed(LEFT, emitters=[silent], timeline=[
            {"at": 0.123, "emitter": 11, "state": "play"}]))
        self.run_tool("render", scene, "o.wav", "--rate", "48000", "--seconds", "0.25")
        with wave.open(self.path("o.wav")) as file:
            self.assertEqual((file.getnframes(), file.getframerate()), (12000, 48000))
        samples = channels(self.path("o.wav"))[0]
        first = next(i for i, sample in enumerate(samples) if sample != 0)
        self.assertIn(first - 5904, range(0, 4))  # the sine itself begins at zero

    def test_loud_sums_clip_in_integers_only(self):
        scene = self.scene(changed(LEFT, emitters=[{**LEFT["emitters"][0], "id": i}
                                                   for i in (11, 12, 13, 14)]))
        for format, clips in [("s16", True), ("f32", False)]:
            out, _ = self.run_tool("render", scene, "o.wav", "--format", format, "--json")
            self.assertEqual(json.loads(out)["clipped"] > 1000, clips)
        self.assertAlmostEqual(json.loads(out)["all"]["left"]["peak"], 6.02, delta=0.1)

    def test_more_emitters_than_usual_all_sound(self):
        one = {"source": 1, "state": "play", "spatial": False, "gain": 0.001}
        results = []
        for count in (1, 400):
            scene = self.scene(changed(LEFT, emitters=[{**one, "id": i + 10}
                                                       for i in range(count)]))
            out, _ = self.run_tool("render", scene, "o.wav", "--format", "f32", "--json")
            results.append(json.loads(out)["all"]["left"]["rms"])
        self.assertAlmostEqual(results[1] - results[0], 20 * math.log10(400), delta=0.2)

    def test_an_interrupted_render_leaves_the_former_file(self):
        scene = self.scene(changed(LEFT, duration=86400))
        self.scene("former", "o.wav")
        process = self.start("render", scene, "o.wav", "--rate", "8000")
        self.wait_for(lambda: len(os.listdir(self.folder)) > 2, "no temporary file")
        process.send_signal(signal.SIGINT)
        _, err = self.finish(process, 1)
        self.assertIn("interrupted", err)
        self.assertEqual(sorted(os.listdir(self.folder)), ["o.wav", scene])
        self.assertEqual(self.read("o.wav"), '"former"')

    def test_a_lost_url_is_named_and_the_rest_is_heard(self):
        scene = self.scene(LEFT)
        self.run_tool("render", scene, "tone.wav")
        self.scene("no sound at all", "no.wav")
        with open(self.path("tone.wav"), "rb") as tone, open(self.path("rate.wav"), "wb") as rate:
            rate.write(tone.read(24) + b"\0\x28\x6b\xee" + tone.read()[4:])  # 4 GHz
        sources = [{"id": i, "url": "file://" + self.path(name)} for i, name in
                   enumerate(["gone.wav", "no.wav", "rate.wav", "tone.wav"], 1)]
        self.scene(changed(LEFT, sources=sources, emitters=[
            {**LEFT["emitters"][0], "id": 10 + i, "source": i, "spatial": False}
            for i in (1, 2, 3, 4)]))
        out, err = self.run_tool("render", scene, "o.wav", code=1)
        self.assertRegex(err, r'scene\.json:1: sources\[0\]\.url: cannot fetch ".*gone\.wav"')
        self.assertRegex(err, r'scene\.json:1: sources\[1\]\.url: cannot play ".*no\.wav"')
        self.assertRegex(err, r'scene\.json:1: sources\[2\]\.url: OpenAL refuses .*rate\.wav"')
        self.assertEqual(len(err.splitlines()), 4, err)
        self.assertIn("o.wav is written, but not all", err)
        self.assertGreater(levels(self.path("o.wav"))[0], -20)
        self.assertIn("1.00 s", out)  # as long as the sound that was fetched


class Plot(SoundCase):
    def test_it_is_xml_with_every_emitter_whatever_its_name(self):
        self.mono("a<b>&\".wav")
        scene = self.scene(changed(
            LEFT, sources=LEFT["sources"] + [{"id": 2, "file": "a<b>&\".wav"}],
            emitters=LEFT["emitters"] + [{"id": 12, "source": 2, "position": [40, 0, 1]}],
            timeline=[{"at": 1, "emitter": 14, "create": True, "position": [0, 0, 3]}]))
        self.run_tool("render", scene, "o.wav")
        self.run_tool("plot", scene, "o.svg", "--levels", "o.wav")
        texts = [element.text for element in ElementTree.parse(self.path("o.svg")).iter()]
        for expected in ("11: 441 Hz", '12: a<b>&"', "14", "listener", "RMS level in dBFS"):
            self.assertIn(expected, texts)


class Play(SoundCase):
    def read_until(self, process, text):
        """The line of the process's messages that has the text."""
        line = next((line for line in process.stderr if text in line), None)
        self.assertIsNotNone(line, "it has ended by itself")
        return line

    def test_ctrl_c_and_termination_end_it_at_once(self):
        scene = self.scene(changed(LEFT, duration=1000, timeline=[
            {"at": 0.05, "emitter": 11, "state": "pause"}]))
        for number in (signal.SIGINT, signal.SIGTERM):
            process = self.start("play", scene, "--loop", "--backend", "log", "--backend", "silent")
            self.read_until(process, "setEmitterState: pause")
            begin = time.monotonic()
            process.send_signal(number)
            _, rest = self.finish(process, 0)
            self.assertLess(time.monotonic() - begin, 1.0)
            # In order: first the parts, then the back end.
            self.assertRegex(rest, r"(?s)destroyEmitter.*destroySource.*delete backend")

    def test_the_timeline_runs_in_real_time_and_again(self):
        scene = self.scene(changed(LEFT, duration=0.3, timeline=[
            {"at": 0.2, "emitter": 11, "gain": 0.5}]))
        begin = time.monotonic()
        _, err = self.run_tool("play", scene, "--backend", "log", "--loop", "--seconds", "0.75")
        self.assertTrue(0.75 <= time.monotonic() - begin < 5)
        # At the start and at 0.2 s, twice.
        self.assertEqual(err.count("setEmitterParam"), 4, err)

    def test_without_a_device_one_message_names_render(self):
        scene = self.scene(changed(LEFT, duration=0.05))
        env = {"ALSOFT_DRIVERS": "none"}
        for backends, code in [([], 1), (["openal", "default"], 1), (["default", "silent"], 0)]:
            with self.subTest(backends):
                arguments = [word for kind in backends for word in ("--backend", kind)]
                _, err = self.run_tool("play", scene, *arguments, code=code, env=env)
                self.assertEqual(len(err.splitlines()), 1, err)
                self.assertIn("orvel render scene.json OUT.wav", err)

    def test_a_browser_is_shown_what_runs(self):
        scene = self.scene(changed(LEFT, duration=1000))
        for command in (["play", scene, "--backend", "log"],
                        ["serve", "--backend", "silent", "--interface", "127.0.0.1"]):
            process = self.start(*command, "--web")
            line = self.read_until(process, "Web server open ok: ")
            with urllib.request.urlopen(line.split()[-1], timeout=DEADLINE) as page:
                self.assertIn("<TR><TD>Backend</TD><TD>2</TD>", page.read().decode())
            process.send_signal(signal.SIGINT)
            self.finish(process, 0)


class Completion(SoundCase):
    def complete(self, line):
        """What bash would offer at the end of the line."""
        script = f"""
            source "$1"
            PATH="{os.path.dirname(TOOL)}:$PATH"
            read -ra COMP_WORDS <<<"$2"
            [[ $2 == *' ' ]] && COMP_WORDS+=("")
            COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1))
            _orvel
            printf '%s\\n' "${{COMPREPLY[@]}}"
        """
        return set(subprocess.check_output(
            ["bash", "--norc", "-c", script, "bash", COMPLETION, line],
            cwd=self.folder, text=True, timeout=DEADLINE).split())

    def test_it_offers_what_fits(self):
        self.scene(LEFT)
        self.scene(LEFT, "other.json")
        os.mkdir(self.path("sub"))
        self.mono("o.wav")
        for line, expected in [
            ("orvel pl", {"play", "plot"}),
            ("orvel serve --scene o", {"other.json"}),
            ("orvel render --rate 48000 ", {"scene.json", "other.json", "sub"}),
            ("orvel render scene.json ", {"o.wav", "sub"}),
            ("orvel render --format ", {"s16", "f32"}),
            ("orvel serve --backend ", {"default", "log", "monitor", "openal", "play", "silent",
                                        "web"}),
        ]:
            with self.subTest(line):
                self.assertEqual(self.complete(line), expected)

    def test_it_knows_every_option(self):
        for command in COMMANDS:
            shown = set(re.findall(r"^ .*?(--[a-z-]+)", self.run_tool(command, "--help")[0], re.M))
            self.assertEqual(self.complete(f"orvel {command} -"), shown)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]])
