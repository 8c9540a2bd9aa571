"""The package for Python beyond its examples: every use of what is gone, callbacks that fail, arrays."""
import array
import csv
import gc
import logging
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest
import warnings

import numpy

import orvel

EXAMPLES = pathlib.Path(sys.argv.pop(1))
FIRST = EXAMPLES / "scenes/first.json"


class PackageTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = pathlib.Path(folder.name)

    def test_every_use_of_what_is_gone_names_it(self):
        server, world, scene = orvel.Server("127.0.0.1"), orvel.World(), orvel.Scene(FIRST)
        source, emitter = world.create_source(5), world.create_emitter(6)
        attached = [
            source, emitter, world.add_backend("silent"), orvel.Renderer(world), scene.play(world),
            orvel.OscInput(world), orvel.Monitor(world, port=0),
            orvel.Capture.record(server, self.path / "capture")]
        for owner in (world, server, scene):
            owner.close()
            owner.close()
        arguments = {"advance": [0.0], "add_backend": ["log"], "set_file": [FIRST], "set_keys": ["k"], "cue": ["x"],
                     "seek": [0.0], "control": [None],
                     "set_samples": [b"ab", 8000], "set_transform": [(0, 0, 0), None], "source": [1],
                     "emitter": [1], "render_into": [array.array("f", [0, 0])], "render": [8000],
                     "render_file": ["x.wav"]}
        uses = 0
        for gone in [world, server, scene, *attached]:
            for name in dir(type(gone)):
                member = getattr(type(gone), name)
                if name[0] == "_" or name in ("alive", "close", "destroy", "record", "on_reset"):
                    continue
                with self.subTest(gone=gone, name=name), self.assertRaises(orvel.GoneError) as caught:
                    value = getattr(gone, name)
                    if not isinstance(member, property):
                        value(*([world] if (gone, name) == (scene, "play") else arguments.get(name, [])))
                self.assertRegex(str(caught.exception), r"^[a-z].* is gone: ")
                uses += 1
                if isinstance(member, property) and member.fset:
                    with self.subTest(gone=gone, set=name), self.assertRaises(orvel.GoneError):
                        member.fset(gone, {"position": (0, 0, 0), "hull": orvel.Hull(),
                                           "listener_position": (0, 0, 0), "rotation": (0, 0, 0, 1),
                                           "listener_rotation": (0, 0, 0, 1), "url": "x",
                                           "interfaces": [], "multicast": orvel.Multicast(),
                                           "source": None}.get(name, 1))
            self.assertFalse(gone.alive)
        self.assertGreater(uses, 80)

    def test_a_gone_argument_is_named_too(self):
        with orvel.World() as world, orvel.World() as other:
            emitter, source = world.create_emitter(), world.create_source(9)
            source.destroy()
            with self.assertRaisesRegex(orvel.GoneError, "^source 9 is gone"):
                emitter.source = source
            with self.assertRaisesRegex(orvel.Error, "another world"):
                emitter.source = other.create_source()

    def test_exceptions_of_callbacks_leave_the_call(self):
        class Stop(Exception):
            pass

        def stop(*_):
            raise Stop

        scene = orvel.Scene(FIRST)
        with self.assertRaises(Stop):
            scene.render(progress=stop)
        with self.assertRaises(Stop):
            scene.render_file(self.path / "out.wav", progress=stop)
        self.assertEqual(os.listdir(self.path), [])
        with orvel.Server("127.0.0.1") as server, orvel.World() as client:
            server.interfaces, server.multicast = ["lo"], orvel.Multicast(port=server.port, ttl=0)
            self.assertEqual((server.interfaces, server.multicast.port), (["lo"], server.port))
            server.on_reset = server.close  # refused, because the server is in use
            client.add_backend("client", interfaces=["127.0.0.1"], port=server.port, ttl=0)
            with self.assertRaisesRegex(orvel.Error, "inside a callback"):
                for _ in range(1000):
                    server.poll(0.01)
                    client.update()
            server.on_reset = None

    def test_key_files_are_made_and_changed(self):
        keys = orvel.Keys.new(self.path / "show.keys")
        desk = keys.grant("desk", self.path / "desk.key", right="watch")
        self.assertEqual([*desk], [[*keys][1]])
        self.assertEqual((len(keys), [*desk][0].right, [*desk][0].name), (2, "watch", "desk"))
        self.assertEqual(os.stat(desk).st_mode & 0o777, 0o600)
        for fault, call, *arguments in [
                ("revoke it first", keys.grant, "desk", self.path / "new"),
                ("found \"rule\"", keys.grant, "hall", self.path / "new", "rule"),
                ("File exists", keys.grant, "hall", desk), ("no key with the name", keys.revoke, "x"),
                ("No such file", orvel.Keys, self.path / "none"), ("File exists", orvel.Keys.new, desk)]:
            with self.assertRaisesRegex(orvel.Error, fault):
                call(*arguments)

    def test_samples_go_in_and_out_unchanged(self):
        with orvel.World() as world:
            source = world.create_source()
            for samples in (numpy.arange(-4, 4, dtype=numpy.int16), numpy.arange(6, dtype=numpy.uint8),
                            numpy.arange(8, dtype=numpy.int16).reshape(4, 2),
                            numpy.arange(9, dtype=numpy.int16)[::2], array.array("h", [1, 2, 3])):
                source.set_samples(samples, 8000)
                numpy.testing.assert_array_equal(
                    source.samples.ravel(), numpy.asarray(samples).ravel())
                self.assertEqual(source.samples.dtype, numpy.asarray(samples).dtype)
            source.set_samples(numpy.float32([0, 0.5, -1, 2]), 8000)
            self.assertEqual(source.samples.ravel().tolist(), [0, 16384, -32767, 32767])
            frozen = numpy.int16([1, 2])
            frozen.flags.writeable = False
            source.set_samples(frozen, 8000)
            self.assertEqual(source.samples.ravel().tolist(), [1, 2])
            for bad in (numpy.int64([1]), numpy.zeros((1, 1, 1), numpy.int16)):
                with self.assertRaisesRegex(ValueError, "expected int16"):
                    source.set_samples(bad, 8000)
            renderer = orvel.Renderer(world)
            for bad in (array.array("f", [0.0]), array.array("d", [0, 0]), bytes(8)):
                with self.assertRaisesRegex(ValueError, "expected a writable"):
                    renderer.render_into(bad)

    def test_parameters_labels_and_the_log(self):
        with orvel.World() as world, self.assertLogs("orvel", logging.WARNING) as logged:
            world.add_backend("loopback", labels=["a", 'b "c"\\'], rate=8000)
            self.assertEqual(world.create_emitter(labels=["a", "b"]).labels, ("a", "b"))
            with self.assertRaisesRegex(orvel.Error, "the kinds are default, client"):
                world.add_backend("loud")
            world.create_source(3)
            with self.assertRaisesRegex(orvel.Error, "already a source with the id 3"):
                world.create_source(3)
            for argument, kind, text in [(2 ** 32 + 5, ValueError, "to 2147483647, found 4294967301"),
                                         ("x", TypeError, "cannot take 'x'")]:
                with self.assertRaisesRegex(kind, text):
                    world.create_source(argument)
        self.assertIn("ERROR:orvel:There is already a source with the ID 3", logged.output)

    def test_a_world_that_nobody_closed_is_closed_with_a_warning(self):
        with warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter("always")
            emitter = orvel.World().create_emitter()  # keeps its world
            emitter.gain = 2.0
            self.assertEqual((emitter.gain, caught), (2.0, []))
            del emitter
            gc.collect()
        self.assertEqual([str(one.message) for one in caught], ["the world was not closed"])

    def test_the_experiment_writes_a_row_for_each_answer(self):
        answers = self.path / "answers"
        answers.write_text("-30 0 30")
        out = self.path / "out.csv"
        subprocess.run([sys.executable, EXAMPLES / "python_experiment.py", out, "3", answers], check=True)
        rows = list(csv.DictReader(out.read_text().splitlines()))
        self.assertEqual([row["answer"] for row in rows], ["-30", "0", "30"])
        for row in rows:
            self.assertAlmostEqual(
                float(row["answer"]) - float(row["azimuth"]), float(row["error"]), delta=0.11)


if __name__ == "__main__":
    unittest.main()
