"""Runs the built tool as a user does: tool_test.py TOOL COMPLETION [unittest arguments]."""

import array
import json
import math
import os
import pathlib
import re
import signal
import subprocess
import sys
import time
import unittest
import wave
import xml.etree.ElementTree as ElementTree

from tool_case import DEADLINE, LEFT, TOOL, ToolCase, changed, channels, levels

COMMANDS = ["render", "play", "serve", "record", "servers", "plot", "check", "kinds",
            "doctor", "key", "hrtf"]
COMPLETION = os.path.abspath(sys.argv[2])


class SoundCase(ToolCase):
    def mono(self, name, channels=1):
        with wave.open(self.path(name), "wb") as file:
            file.setparams((channels, 2, 8000, 0, "NONE", ""))
            file.writeframes(bytes(channels * 800))


class Messages(SoundCase):
    def test_wrong_use_is_told_once_with_code_2(self):
        scene = self.scene(LEFT)
        for arguments, expected in [
            ([], "expected one of: " + ", ".join(COMMANDS)),
            (["plya"], 'did you mean "play"?'),
            (["play", "--hel"], 'unknown option "--hel"; did you mean "--help"?'),
            (["render", scene, "o.wav", "--from", "1"], "not before its end, at 1 s"),
            (["render", scene], "OUT.wav is required"),
            (["render", scene, "o.wav", "--rate", "7999"], "expected 8000 to 192000 Hz"),
            (["render", scene, "o.wav", "--backend", "voices:rate=8000"], "as --rate 8000"),
            (["render", scene, "o.wav", "--seconds", "nan"], "expected seconds above 0"),
            (["play", scene, "--backend", "tuba"],
             'unknown kind "tuba"; expected one of: client, default, log, monitor, openal, play, silent, voices, web'),
            (["play", scene, "--backend", "loopback"], "orvel render scene.json OUT.wav"),
            (["play", scene, "--backend", 'log:labels="a'], "column 8"),
            (["serve", "--backend", "openal:lables=a"], 'of: labels; did you mean "labels"?'),
            (["play", scene, "--server", "a:1"], "add --backend client"),
            (["serve", "--backend", "client"], "drive itself"),
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
        self.mono("three.wav", 3)
        before = sorted(os.listdir(self.folder))
        for arguments, expected in [
            (["render", "gone.json", "o.wav"], "gone.json"),
            (["render", "empty.json", "o.wav"], "nothing to render"),
            (["render", "long.json", "o.wav"], "do not fit into a WAV file"),
            (["render", scene, "gone/o.wav"], "cannot write gone/o.wav: No such file"),
            (["render", scene, "/dev/full"], "cannot write /dev/full"),
            (["plot", scene, "o.svg", "--levels", "three.wav"], "expected 1, 2, 4, 6, 7 or 8 channels"),
        ]:
            with self.subTest(arguments):
                out, err = self.run_tool(*arguments, code=1)
                self.assertEqual(out, "")
                self.assertIn(expected, err)
                self.assertEqual(sorted(os.listdir(self.folder)), before)


class Outputs(SoundCase):
    def contents(self):
        return {path.name: path.read_bytes() for path in pathlib.Path(self.folder).iterdir()}

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
            (["render", scene, scene], "scene.json is the input scene"),
            (["render", scene, "o.wav", "--plot", "./" + scene], "is the input scene"),
            (["render", scene, "u.wav"], "is a sound of the scene"),
            (["plot", scene, "hard.wav"], "is a sound of the scene"),
            (["serve", "--scene", scene, "--render", "soft.wav"], "is a sound of the scene"),
            ([*record, "s.orvelrec", "--render", "t.wav"], "is a sound of the scene"),
            ([*record, "o.wav"], "only captures (.orvelrec)"),
            (["render", scene, "o.mp3"], "only WAV files (.wav)"),
            (["plot", scene, "o.png"], "only SVG pictures (.svg)"),
            (["render", scene, "o", "--plot", "./o"], "written twice"),
            (["render", scene, "-", "--plot", "-"], "written twice"),
        ]:
            with self.subTest(arguments):
                self.assertIn(expected, self.run_tool(*arguments, code=2)[1])
                self.assertEqual(self.contents(), before)

    def test_a_stream_has_a_header_that_is_true(self):
        scene = self.scene(LEFT)
        self.assertEqual(self.run_tool("render", scene, "o")[1], "")
        pipe = subprocess.run([TOOL, "render", scene, "-"], cwd=self.folder, check=True,
                              capture_output=True, timeout=DEADLINE)
        self.assertIn(b"standard output: 1.00 s", pipe.stderr)
        self.assertEqual(pipe.stdout, self.contents()["o"])
        self.assertTrue(self.run_tool("plot", scene, "-")[0].endswith("</svg>\n"))

    def test_a_long_table_has_few_rows_unless_all_are_wanted(self):
        scene = self.scene(changed(LEFT, duration=130.5))
        for options, rows in ([], 27), (["--all"], 131):
            out, _ = self.run_tool("render", scene, "o.wav", "--rate", "8000", *options)
            self.assertEqual(len(out.splitlines()), rows + 3, out)


class Render(ToolCase):
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

    def test_the_middle_sounds_as_in_the_whole(self):
        scene = self.scene(changed(
            LEFT, sources=[{"id": 1, "tone": {"seconds": 0.37}, "loop": True, "pitch": 0.7}],
            emitters=[*LEFT["emitters"], {"id": 12, "source": 1, "spatial": False}], duration=1,
            timeline=[{"at": 0.2, "emitter": 11, "position": [9, 0, 0], "over": 0.6},
                      {"at": 0.1, "emitter": 11, "state": "pause"},
                      {"at": 0.3, "source": 1, "state": "play"}]))
        self.run_tool("render", scene, "whole.wav")
        self.run_tool("render", scene, "middle.wav", "--from", "0.6", "--seconds", "0.3")
        self.assertGreater(levels(self.path("middle.wav"))[0], -30)
        for whole, middle in zip(*(channels(self.path(name + ".wav"))
                                   for name in ("whole", "middle"))):
            self.assertEqual(len(middle), 13230)
            self.assertLess(max(abs(a - b) for a, b in zip(whole[26460:39690], middle)), 40)

    def test_loud_sums_clip_in_integers_only(self):
        scene = self.scene(changed(LEFT, emitters=[{**LEFT["emitters"][0], "id": i}
                                                   for i in (11, 12, 13, 14)]))
        for format, clips in [("s16", True), ("f32", False)]:
            out, _ = self.run_tool("render", scene, "o.wav", "--format", format, "--json")
            full = [sample for side in (channels(self.path("o.wav")) if clips else ())
                    for sample in side if sample in (-32768, 32767)]
            self.assertEqual(json.loads(out)["clipped"], len(full))
            self.assertEqual(len(full) > 1000, clips)
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
        self.assertRegex(err, r'scene\.json:1: sources\[2\]\.url: cannot play ".*rate\.wav"')
        self.assertEqual(len(err.splitlines()), 4, err)
        self.assertIn("o.wav is written, but some sounds", err)
        self.assertGreater(levels(self.path("o.wav"))[0], -20)
        self.assertIn("1.00 s", out)  # the length of the fetched sound


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

    def test_hulls_are_drawn_as_they_are_heard(self):
        pictures = []
        for turned, extents in (0, [5, 5, 2, 2]), (1, [0, 10, 1, 3]):
            hull = dict(zip(["maxBack", "maxFront", "minBack", "minFront"], extents))
            scene = self.scene(changed(LEFT, emitters=[
                {"id": 1, "hull": hull, "rotation": [0, turned, 0, 1 - turned]}]))
            pictures.append(self.run_tool("plot", scene, "-")[0])
        self.assertEqual(*pictures)

    def test_many_emitters_are_a_density(self):
        places = [{"id": 1 + i, "position": [i % 50, 0, i // 50]} for i in range(1001)]
        picture = self.run_tool("plot", self.scene(changed(LEFT, emitters=places)), "-")[0]
        self.assertIn("1001 emitters", picture)
        self.assertLess(len(picture), 50000)  # 1,000 signs take ten times as much


class Play(SoundCase):
    def read_until(self, process, text):
        """The first line of the process's messages that contains the text."""
        line = next((line for line in process.stderr if text in line), None)
        self.assertIsNotNone(line, "it has ended by itself")
        return line

    def test_ctrl_c_and_termination_end_it_at_once(self):
        scene = self.scene(changed(LEFT, duration=1000, timeline=[
            {"at": 0.05, "emitter": 11, "state": "pause"}]))
        for number in (signal.SIGINT, signal.SIGTERM):
            process = self.start("play", scene, "--loop", "--backend", "log", "--backend", "silent")
            self.read_until(process, "setEmitterState: pause")
            process.send_signal(number)
            _, rest = self.finish(process, 0)
            # In order: first the parts, then the back end.
            self.assertRegex(rest, r"(?s)destroyEmitter.*destroySource.*delete backend")

    def test_the_timeline_runs_in_real_time_and_again(self):
        scene = self.scene(changed(LEFT, duration=0.3, timeline=[
            {"at": 0.2, "emitter": 11, "gain": 0.5}]))
        begin = time.monotonic()
        _, err = self.run_tool("play", scene, "--backend", "log", "--loop", "--seconds", "0.75")
        self.assertGreaterEqual(time.monotonic() - begin, 0.75)
        # At the start and at 0.2 s, twice and a half.
        self.assertEqual(err.count("setEmitterParam"), 5, err)

    def heard(self, *arguments):
        """Plays into a file, through OpenAL's device that writes one: the left channel."""
        with open(self.path("alsoft.conf"), "w", encoding="utf-8") as file:
            file.write(f"[general]\nsample-type = int16\n[wave]\nfile = {self.path('o.wav')}\n")
        self.run_tool("play", *arguments, env={
            "ALSOFT_DRIVERS": "wave", "ALSOFT_CONF": self.path("alsoft.conf")})
        with open(self.path("o.wav"), "rb") as file:
            data = file.read().partition(b"data")[2][4:]
        return array.array("h", data[:len(data) // 4 * 4])[::2]

    def test_rounds_of_a_loop_begin_within_the_usual_periods(self):
        scene = self.scene({**LEFT, "duration": 0.11, "sources": [
            {"id": 1, "tone": {"seconds": 0.05}}]})
        samples = self.heard(scene, "--loop", "--seconds", "1.2")
        loud = [0] + [i for i, sample in enumerate(samples) if abs(sample) > 99]
        begins = [i for last, i in zip(loud, loud[1:]) if i > last + 1000]
        self.assertGreater(len(begins), 3)
        self.assertTrue(any(begin % 1024 > 99 for begin in begins), begins)

    def test_from_the_middle_sounds_are_at_their_place(self):
        with wave.open(self.path("ramp.wav"), "wb") as file:
            file.setparams((1, 2, 8000, 0, "NONE", ""))
            file.writeframes(array.array("h", range(0, 16000, 2)).tobytes())
        one = {"source": 1, "spatial": False, "state": "play"}
        scene = self.scene({"orvel": 1, "sources": [{"id": 1, "file": "ramp.wav"}],
                            "emitters": [{"id": 11, **one}]})
        self.run_tool("render", scene, "r.wav", "--from", "0.5")
        played = self.heard(scene, "--from", "0.5", "--seconds", "0.3")
        begin = next(i for i, sample in enumerate(played) if sample > 99)
        expected = channels(self.path("r.wav"))[0][2000]
        self.assertAlmostEqual(played[begin + 2000], expected, delta=0.02 * expected)


    def test_without_a_device_one_message_names_render(self):
        scene = self.scene(changed(LEFT, duration=0.05))
        env = {"ALSOFT_DRIVERS": "none"}
        for backends, code in [([], 1), (["openal", "default"], 1), (["default", "silent"], 0)]:
            with self.subTest(backends):
                arguments = [word for kind in backends for word in ("--backend", kind)]
                _, err = self.run_tool("play", scene, *arguments, code=code, env=env)
                self.assertEqual(len(err.splitlines()), 1, err)
                self.assertIn("orvel render scene.json OUT.wav", err)


class Completion(SoundCase):
    def complete(self, line):
        """The completions that bash offers at the end of the line."""
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
                                        "voices", "web"}),
        ]:
            with self.subTest(line):
                self.assertEqual(self.complete(line), expected)

    def test_it_knows_every_option(self):
        for command in COMMANDS:
            shown = set(re.findall(r"^ .*?(--[a-z-]+)", self.run_tool(command, "--help")[0], re.M))
            self.assertEqual(self.complete(f"orvel {command} -"), shown)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
