#!/usr/bin/env python3
"""Checks that includes between the folders of the library point down, never up.

usage: include_direction.py ROOT PUBLIC-HEADER...   prints each forbidden pair; exits with 1 if any

Public headers are given relative to ROOT.
"""
import pathlib
import re
import sys

LAYERS = ["Config", "Vessa", "Corvid", "Orvel", "Show", "apps", "examples"]
POSIX = r"(sys|net|netinet|arpa|linux)/\w+\.h|" \
        r"(unistd|fcntl|poll|pthread|sched|signal|strings|pwd|netdb|ifaddrs|time)\.h"
OTHERS = r"(?!Config|Vessa|Corvid|Orvel|Show).*"  # libraries and systems
# Allowed includes by file: the first matching pattern applies. The scene knows back
# ends only by their base class and the registry. The standard library, C's included, and the
# generated export header are open to all.
RULES = [
    (r"Config/.*", r"Config/.*"),
    (r"Vessa/.*", r"Vessa/.*|" + POSIX),
    (r"Corvid/detail/.*\.h", r"(Corvid|Vessa)/.*|boost/.*|" + POSIX),
    (r"Corvid/[^/]*\.h", r"(Corvid|Vessa)/.*"),
    (r"Corvid/.*", r"(Corvid|Vessa)/.*|" + OTHERS),
    (r"Orvel/(World|WorldPart|Source|Emitter)\.(h|cpp)",
     r"(Corvid|Vessa|Config)/.*|Orvel/(Backend|BackendFactory|BackendType)\.h|"
     r"Orvel/(?!.*Backend\.h).*"),
    (r"Orvel/[^/]*\.h", r"(Orvel|Corvid|Vessa|Config)/.*"),
    (r"Orvel/.*", r"(Orvel|Corvid|Vessa|Config)/.*|" + OTHERS),
    (r"examples/.*", OTHERS),
]
# Within the library of the show, a folder may include itself and those before it here.
SHOW = ["detail", "scene", "player", "check", "server", "render", "capture", "monitor", "osc", "plot"]
# Its public headers stand above those folders, but for those that hold values.
VALUES = r"Show/(Cue|LevelMeter|Problem|SampleFormat)\.h"
RULES += [(r"Show/[^/]*\.h", r"Show/[^/]*\.h|(Orvel|Corvid|Vessa|Config)/.*"),
          (r"Show/[^/]*\.cpp", r"(Show|Orvel|Corvid|Vessa|Config)/.*|" + OTHERS)]
# The desk and the paths of cues control a playback, and stand above the public classes as well.
RULES += [(r"Show/(desk/.*|osc/CuePaths\.cpp)", r"Show/(Playback|ShowFile)\.h|Show/[a-z]+/.*|(Orvel|Corvid|Vessa|Config)/.*|" + OTHERS)]
RULES += [(rf"Show/{folder}/.*",
           rf"{VALUES}|Show/({'|'.join(SHOW[:place + 1])})/.*|(Orvel|Corvid|Vessa|Config)/.*|" + OTHERS)
          for place, folder in enumerate(SHOW)]
# Inner headers that the tool may use; apps/orvel/CMakeLists.txt gives the reasons.
TOOL = r"Show/(server/(SoundServer|AddressRange)|capture/CaptureWriter|render/LiveRecording|" \
       r"player/(Playable|PlayClock|DelayedBackend)|detail/(VisibleText|DidYouMean|OutputFile))\.h"
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*([<"][^>"]+[>"])', re.MULTILINE)


def forbidden(path, include, public):
    """Whether `path` must not include `include`, given with its brackets."""
    name = include[1:-1]
    if path.startswith("apps/"):
        return name.startswith("Show/") and name not in public and not re.fullmatch(TOOL, name)
    if include[0] == '"':
        return True  # own headers are included as <Folder/Name.h>
    if re.fullmatch(r"[a-z0-9_]+|std\w+\.h|orvel(_show)?_export\.h", name):
        return False
    if path in public or path.startswith("examples/") and not re.fullmatch(OTHERS, name):
        return name not in public  # installed headers need nothing else; examples are hosts
    return not next(re.fullmatch(what, name) for who, what in RULES if re.fullmatch(who, path))


def faults(root, public):
    """The forbidden pairs as (file, line, include), and the number of files read."""
    found = []
    files = sorted(path for folder in LAYERS for path in (root / folder).rglob("*")
                   if path.suffix in (".h", ".cpp"))
    for file in files:
        text = file.read_text(encoding="utf-8")
        path = file.relative_to(root).as_posix()
        found += [(path, text.count("\n", 0, match.start(1)) + 1, match[1])
                  for match in INCLUDE.finditer(text) if forbidden(path, match[1], public)]
    return found, len(files)


# Pairs that must be reported, to check the rules themselves.
PUBLIC = ["Orvel/World.h", "Corvid/A.h", "Show/A.h"]
BAD = [
    ("Config/A.cpp", "<unistd.h>"), ("Vessa/A.cpp", "<Corvid/A.h>"), ("Corvid/A.cpp", "<Config/A.h>"),
    ("Corvid/A.h", "<curl/curl.h>"), ("Corvid/detail/B.h", "<curl/curl.h>"),
    ("Orvel/World.cpp", "<Orvel/OALBackend.h>"), ("Orvel/World.h", "<Orvel/detail/A.h>"),
    ("Orvel/A.cpp", '"A.h"'), ("Orvel/NotYetListed.h", "<AL/al.h>"),
    ("examples/a.cpp", "<Orvel/detail/A.h>"), ("Show/scene/A.cpp", "<Show/player/A.h>"),
    ("Orvel/A.cpp", "<Show/scene/A.h>"), ("Show/A.h", "<Show/scene/A.h>"), ("Show/scene/A.cpp", "<Show/A.h>"),
    ("apps/orvel/A.cpp", "<Show/scene/A.h>"),
]


def main():
    root, public = pathlib.Path(sys.argv[1]), sys.argv[2:]
    found, count = faults(root, public)
    found += [(path, "is not found", name) for path, name in BAD if not forbidden(path, name, PUBLIC)]
    for path, line, include in found:
        print(f"{path}:{line}: must not include {include}")
    print(f"{count} files, {len(found)} forbidden includes")
    return 1 if found or count == 0 or not public else 0


if __name__ == "__main__":
    sys.exit(main())
