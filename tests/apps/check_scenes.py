#!/usr/bin/env python3
"""Shows that `orvel check` and the JSON Schema agree on scenes, and that the documented scene is good.

Usage: check_scenes.py ORVEL SCHEMA DOCUMENTATION
"""

import copy
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
}
CREATE = {"at": 1, "emitter": 9, "create": True}

# What replaces a part of BASE; whether that is right.
SCENES = [
    ({}, True),
    ({"orvel": 1.0}, True),
    ({"orvel": True}, False),
    ({"orvel": 2}, False),
    ({"comment": "none"}, False),
    ({"duration": 86400}, True),
    ({"duration": 0}, False),
    ({"duration": "9"}, False),
    ({"listener": {"rotation": [0, 0, 1, 0]}}, True),
    ({"listener": {"position": [0, 0]}}, False),
    ({"listener": {"position": [0, 0, None]}}, False),
    ({"listener": {"position": [0, 0, 1e39]}}, False),
    ({"listener": []}, False),
    ({"emitters": {}}, False),
]
SOURCES = [
    ({"id": 2, "url": "https://example.org/a.wav"}, True),
    ({"id": 2.0, "tone": {"hertz": 22050, "seconds": 0.5, "amplitude": 1}, "pitch": 2}, True),
    ({"id": 2, "file": "there.wav", "channels": "keep", "loop": True, "state": "none"}, True),
    ({"id": 32768, "tone": {}}, False),
    ({"id": 2}, False),
    ({"tone": {}}, False),
    ({"id": 2, "url": "a.wav"}, False),
    ({"id": 2, "file": ""}, False),
    ({"id": 2, "file": "there.wav", "tone": {}}, False),
    ({"id": 2, "tone": {}, "channels": "keep"}, False),
    ({"id": 2, "tone": {"hertz": 0}}, False),
    ({"id": 2, "tone": {"amplitude": -0.1}}, False),
    ({"id": 2, "tone": {"phase": 0}}, False),
    ({"id": 2, "tone": {}, "pitch": 0}, False),
    ({"id": 2, "tone": {}, "loop": "yes"}, False),
]
EMITTERS = [
    ({"id": 3, "source": None, "hull": {}, "gain": 0, "value": -1, "labels": ["a b"]}, True),
    ({"id": 3, "source": "1"}, False),
    ({"id": 3, "gain": -1}, False),
    ({"id": 3, "hull": {"maxBack": -1}}, False),
    ({"id": 3, "hull": {"maxLeft": 1}}, False),
    ({"id": 3, "labels": ["a,b"]}, False),
    ({"id": 3, "labels": [" a"]}, False),
    ({"id": 3, "labels": "a"}, False),
    ({"id": 3, "state": "playing"}, False),
    ({"id": 3, "connect": 1}, False),
]
ENTRIES = [
    ({"at": 0, "emitter": 1, "position": [1, 2, 3], "state": "stop", "over": 2}, True),
    ({"at": 0, "emitter": 1, "connect": None}, True),
    ({"at": 0, "emitter": 1, "destroy": True}, True),
    ({**CREATE, "connect": 1, "labels": ["a"], "state": "none"}, True),
    ({"at": 0, "source": 1, "pitch": 2, "over": 0}, True),
    ({"at": 0, "source": 1, "file": "there.wav", "channels": "mix"}, True),
    ({"at": 0, "source": 2, "create": True, "tone": {}}, True),
    ({"at": 0, "source": 1, "destroy": True}, True),
    ({"at": 0, "listener": True, "position": [1, 2, 3], "over": 1}, True),
    ({"at": 0, "world": True, "enabled": False, "spatialize": True}, True),
    ({"emitter": 1, "gain": 1}, False),
    ({"at": -1, "emitter": 1, "gain": 1}, False),
    ({"at": 86401, "emitter": 1, "gain": 1}, False),
    ({"at": 0, "gain": 1}, False),
    ({"at": 0, "emitter": 1, "source": 1}, False),
    ({"at": 0, "emitter": 1}, False),
    ({"at": 0, "emitter": 1, "state": "play", "over": 1}, False),
    ({"at": 0, "emitter": 1, "state": "none"}, False),
    ({"at": 0, "emitter": 1, "labels": ["a"]}, False),
    ({"at": 0, "emitter": 1, "gain": 1, "create": False}, False),
    ({"at": 0, "emitter": 1, "gain": 1, "destroy": True}, False),
    ({**CREATE, "over": 1}, False),
    ({**CREATE, "source": 1}, False),
    ({"at": 0, "source": 1, "file": "there.wav", "tone": {}}, False),
    ({"at": 0, "source": 1, "channels": "mix", "loop": True}, False),
    ({"at": 0, "source": 1, "loop": True, "over": 1}, False),
    ({"at": 0, "source": 2, "create": True}, False),
    ({"at": 0, "listener": 1, "position": [1, 2, 3]}, False),
    ({"at": 0, "listener": True, "over": 1}, False),
    ({"at": 0, "world": True}, False),
    ("soon", False),
]
# What only the tool sees.
BEYOND_SCHEMA = [
    {"listener": {"rotation": [0, 0, 0, 2]}},
    {"emitters": [{"id": 1}, {"id": 1}]},
    {"emitters": [{"id": 1, "source": 5}]},
    {"sources": [{"id": 1, "file": "gone.wav"}]},
    {"timeline": [{"at": 0, "emitter": 5, "gain": 1}]},
]


def scenes():
    """Yields (scene, good for the schema, good for the tool)."""
    for change, good in SCENES:
        yield {**BASE, **change}, good, good
    for key, rows in (("sources", SOURCES), ("emitters", EMITTERS), ("timeline", ENTRIES)):
        for item, good in rows:
            scene = copy.deepcopy(BASE)
            scene.setdefault(key, []).append(item)
            yield scene, good, good
    for change in BEYOND_SCHEMA:
        yield {**BASE, **change}, True, False


def write_wave(path):
    path.parent.mkdir(parents=True, exist_ok=True)
    with wave.open(str(path), "wb") as sound:
        sound.setnchannels(1)
        sound.setsampwidth(2)
        sound.setframerate(8000)
        sound.writeframes(bytes(1600))


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
        write_wave(folder / "there.wav")
        for source in documented["sources"]:
            if "file" in source:
                write_wave(folder / source["file"])
        count = 0
        for scene, schema_good, tool_good in [*scenes(), (documented, True, True)]:
            path = folder / "scene.json"
            path.write_text(json.dumps(scene), encoding="utf-8")
            run = subprocess.run(
                [orvel, "check", str(path)], capture_output=True, text=True, timeout=30, check=False
            )
            count += 1
            if validator.is_valid(scene) != schema_good:
                faults.append(f"the schema should say {schema_good}: {json.dumps(scene)}")
            if run.returncode != (0 if tool_good else 1):
                faults.append(
                    f"orvel check should say {tool_good}, ended with {run.returncode}: "
                    f"{json.dumps(scene)}\n{run.stdout}{run.stderr}"
                )
    print("\n".join(faults) or f"{count} scenes, no disagreement")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
