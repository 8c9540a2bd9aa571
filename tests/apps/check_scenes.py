#!/usr/bin/env python3
"""Shows that `orvel check` and the JSON Schema agree, that the documented scene is good, and what the
tool warns of.

Usage: check_scenes.py ORVEL SCHEMA DOCUMENTATION
"""

import json
import pathlib
import re
import subprocess
import sys
import tempfile
import wave

import jsonschema

BASE = {
    "orvel": 1,
    "sources": [{"id": 1, "tone": {}}],
    "emitters": [{"id": 1, "source": 1}, {"id": 2}],
    "timeline": [],
}
WAV = {"id": 2, "file": "there.wav"}
CREATE = {"at": 1, "emitter": 9, "create": True}
GAIN = {"at": 0, "emitter": 1, "gain": 1}
MOVED = {"at": 0, "listener": True, "position": [1, 2, 3], "over": 1}

# A key of a part of BASE, with valid and invalid values.
SCENES = [
    ("orvel", [1.0], [True, 2]),
    ("comment", [], ["none"]),
    ("duration", [86400], [0, "9"]),
    ("$schema", ["scene.schema.json"], [1, ""]),
    ("listener", [{"rotation": [0, 0, 1, 0]}, {"ypr": [-720, 90.5, 0]}],
     [[], {"position": [0, 0]}, {"ypr": [0, 0]}, {"ypr": [0, 0, 0], "rotation": [0, 0, 0, 1]}]),
    ("sources", [
        [{"id": 2.0, "url": "https://example.org/a.wav", "pitch": 2}],
        [{**WAV, "channels": "keep", "loop": True, "state": "none"}],
    ], [
        [{"id": 32768, "tone": {}}], [{"id": 2}], [{"tone": {}}], [{"id": 2, "url": "a.wav"}],
        [{"id": 2, "file": ""}], [{**WAV, "tone": {}}], [{"id": 2, "tone": {"hertz": 0}}],
        [{"id": 2, "tone": {}, "channels": "keep"}], [{"id": 2, "tone": {"phase": 0}}],
        [{**WAV, "pitch": 0}], [{**WAV, "loop": "yes"}],
    ]),
    ("emitters", [
        [{"id": 3, "source": None, "hull": {}, "gain": 0, "value": -1, "labels": ["a b"]}],
    ], [
        [{"id": 3, key: value}] for key, value in [
            ("source", "1"), ("gain", -1), ("hull", {"maxBack": -1}), ("hull", {"maxLeft": 1}),
            ("labels", ["a,b"]), ("labels", [" a"]), ("labels", "a"), ("state", "playing"),
            ("connect", 1), ("ypr", 90)]
    ]),
    ("timeline", [
        [{**GAIN, "position": [1, 2, 3], "state": "stop", "over": 2}],
        [{"at": 0, "emitter": 1, "connect": None}],
        [{"at": 0, "emitter": 1, "ypr": [0, 0, 0], "over": 1}, {**CREATE, "ypr": [1, 2, 3]}],
        [{"at": 0, "emitter": 1, "destroy": True}, {**CREATE, "labels": ["a"], "state": "none"}],
        [{"at": 0, "source": 1, "pitch": 2, "over": 0}],
        [{"at": 0, "source": 1, "file": "there.wav", "channels": "mix"}],
        [{"at": 0, "source": 2, "create": True, "tone": {}}],
        [{"at": 0, "source": 1, "destroy": True}],
        [MOVED, {"at": 0, "world": True, "enabled": False, "spatialize": True}],
    ], [
        ["soon"], [{"emitter": 1, "gain": 1}], [{**GAIN, "at": -1}], [{**GAIN, "at": 86401}],
        [{"at": 0, "gain": 1}], [{"at": 0, "emitter": 1}], [{**GAIN, "source": 1}],
        [{"at": 0, "emitter": 1, "state": "play", "over": 1}], [{**GAIN, "state": "none"}],
        [{**GAIN, "labels": ["a"]}], [{**GAIN, "create": False}], [{**GAIN, "destroy": True}],
        [{"at": 0, "emitter": 1, "ypr": [0, 0, 0], "rotation": [0, 0, 0, 1]}],
        [{**CREATE, "over": 1}], [{**CREATE, "source": 1}], [{**MOVED, "listener": 1}],
        [{"at": 0, "source": 1, "file": "there.wav", "tone": {}}],
        [{"at": 0, "source": 1, "channels": "mix", "loop": True}],
        [{"at": 0, "source": 1, "loop": True, "over": 1}],
        [{"at": 0, "source": 2, "create": True}], [{"at": 0, "world": True}],
    ]),
]
SCENES.append(
    ("cues", [[{"name": "rain", "at": 0}, {"name": "dr\u00e4u\u00dfen", "at": 0, "until": 1}]],
     [[{"name": "a b", "at": 0}], [{"name": "a", "at": -1}], [{"name": "", "at": 0}], [{"at": 0}],
      [{"name": "a"}], [{"name": "a", "at": 0, "until": 0}], [{"name": "a", "at": 0, "over": 1}]]))
SCENE_KEYS = {key for key, _, _ in SCENES}


def scenes():
    """Yields (scene, whether it is valid)."""
    for key, right, wrong in SCENES:
        for value, good in [(v, True) for v in right] + [(v, False) for v in wrong]:
            added = BASE[key] + value if isinstance(value, list) and key in BASE else value
            yield {**BASE, key: added}, good


def warning_faults(orvel, folder):
    """The rows are [name, changes of an audible emitter or of the scene, warnings]."""
    def check(*arguments, **options):
        return subprocess.run([orvel, "check", *arguments], cwd=folder, capture_output=True, text=True,
                              timeout=30, **options)

    rows = json.loads(pathlib.Path(__file__).with_name("warned_scenes.json").read_text("utf-8"))
    emitter = {"id": 1, "source": 1, "position": [0, 0, -2], "state": "play",
               "hull": {"minBack": 1, "minFront": 1}}
    files = []
    for name, changes, _ in rows:
        of_scene = {key: value for key, value in changes.items() if key in SCENE_KEYS}
        own = {**emitter, **{key: changes[key] for key in changes.keys() - SCENE_KEYS}}
        files.append(f"{name}.json")
        (folder / files[-1]).write_text(json.dumps({**BASE, "emitters": [own], **of_scene}))
    many = {**BASE, "emitters": [{"id": i} for i in range(1, 1101)]}
    lax, strict = check(*files), check("--strict", *files)
    faults = [] if lax.returncode == 0 and strict.returncode == 1 else [lax.stderr, strict.stderr]
    for name, _, expected in rows:
        found = [line for line in lax.stderr.splitlines() if line.startswith(name + ".json:")]
        if len(found) != len(expected) or any(map(lambda a, b: a not in b, expected, found)):
            faults.append(f"{name}: not {expected}, but {found}")
        if (f"{name}.json: ok (" in strict.stdout) != (not expected):
            faults.append(f"--strict and {name}: {strict.stdout}")
    found = check("-", input=json.dumps(many)).stderr.splitlines()
    if len(found) != 8 or "76 of them" not in found[0] or "1095 more emitters never" not in found[7]:
        faults.append(f"many: {found}")
    return faults


def main():
    orvel, schema_path, documentation = sys.argv[1:]
    schema = json.loads(pathlib.Path(schema_path).read_text(encoding="utf-8"))
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    text = pathlib.Path(documentation).read_text(encoding="utf-8")
    documented = json.loads(re.search(r"```json\n(.*?)```", text, re.S).group(1))
    faults = []
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        for source in [WAV, *documented["sources"]]:
            if "file" in source:
                path = folder / source["file"]
                path.parent.mkdir(parents=True, exist_ok=True)
                with wave.open(str(path), "wb") as sound:
                    sound.setparams((1, 2, 8000, 0, "NONE", ""))
                    sound.writeframes(bytes(1600))
        every = [*scenes(), (documented, True)]
        for scene, good in every:
            path = folder / "scene.json"
            path.write_text(json.dumps(scene), encoding="utf-8")
            run = subprocess.run([orvel, "check", str(path)], capture_output=True, timeout=30)
            if validator.is_valid(scene) != good or run.returncode != (0 if good else 1):
                faults.append(f"schema or tool do not say {good}: {scene}\n{run.stderr}")
        faults += warning_faults(orvel, folder)
    print("\n".join(faults) or f"{len(every)} scenes, no disagreement")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
