#!/usr/bin/env python3
"""Checks that includes between the folders of the library point down, never up.

usage: include_direction.py ROOT PUBLIC-HEADER...   prints each forbidden pair; exits with 1 if any
       include_direction.py --self-test             checks that it finds what it should

Public headers are given relative to ROOT.
"""
import pathlib
import re
import sys
import tempfile

# What each layer may include of the others.
LAYERS = {
    "Config": {"Config"},
    "Vessa": {"Vessa"},
    "Corvid": {"Corvid", "Vessa"},
    "Orvel": {"Orvel", "Corvid", "Vessa", "Config"},
}
# The scene knows back ends only by their base class and the registry.
SCENE = {"World", "WorldPart", "Source", "Emitter"}
ABSTRACT = {"Orvel/Backend.h", "Orvel/BackendFactory.h", "Orvel/BackendType.h"}
EXPORT_HEADER = "orvel_export.h"  # generated, installed, for all layers

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*([<"])([^>"]+)[>"]', re.MULTILINE)
STANDARD = re.compile(r"[a-z0-9_]+")
POSIX = re.compile(r"(sys|net|netinet|arpa|linux)/\w+\.h|"
                   r"(unistd|fcntl|poll|pthread|sched|signal|strings|pwd|netdb|ifaddrs|time)\.h")


def fault(path, quote, include, public):
    """Why `path` must not include `include`; None if it may."""
    layer = path.parts[0]
    header = path.suffix == ".h"
    internal = "detail" in path.parts
    is_public = path.as_posix() in public
    if quote == '"':
        return "own headers are included as <Folder/Name.h>"
    if include == EXPORT_HEADER or STANDARD.fullmatch(include):
        return None
    target = include.split("/")[0]
    if target in LAYERS:
        if layer not in LAYERS:  # an example, which is written as a host writes
            return None if include in public else "an example uses only installed headers"
        if target not in LAYERS[layer]:
            return f"{layer} may include only {', '.join(sorted(LAYERS[layer]))}"
        if is_public and include not in public:
            return "an installed header includes only installed headers"
        if (layer == "Orvel" and path.stem in SCENE and include.endswith("Backend.h")
                and include not in ABSTRACT):
            return "the scene includes no concrete back end"
        return None
    if is_public:
        return "an installed header shows only the standard library and our own types"
    if layer == "Config":
        return "Config uses only the standard library"
    if layer == "Vessa" and not POSIX.fullmatch(include):
        return "Vessa uses only the standard library and POSIX"
    if header and not internal:
        return "a header outside detail/ shows only the standard library and our own types"
    if (header and layer == "Corvid" and not POSIX.fullmatch(include)
            and not include.startswith("boost/")):  # sockets and timers are members there
        return "Corvid uses other libraries than Boost only in source files"
    return None


def faults(root, public):
    """The forbidden pairs as (file, line, include, reason), and how many files were read."""
    found = []
    files = sorted(path for folder in [*LAYERS, "examples"] for path in (root / folder).rglob("*")
                   if path.suffix in (".h", ".cpp"))
    for file in files:
        text = file.read_text(encoding="utf-8")
        path = file.relative_to(root)
        for match in INCLUDE.finditer(text):
            reason = fault(path, match[1], match[2], public)
            if reason:
                found.append((path.as_posix(), text.count("\n", 0, match.start(2)) + 1,
                              match[2], reason))
    return found, len(files)


def self_test():
    public = ["Config/A.h", "Corvid/A.h", "Orvel/Backend.h", "Orvel/World.h", "Orvel/OALBackend.h"]
    rows = [  # file, include, whether it is forbidden
        ("Config/A.cpp", "<vector>", False),
        ("Config/A.cpp", "<orvel_export.h>", False),
        ("Config/A.cpp", "<unistd.h>", True),
        ("Config/A.cpp", "<Orvel/World.h>", True),
        ("Config/A.cpp", "<Corvid/A.h>", True),
        ("Vessa/A.cpp", "<sys/types.h>", False),
        ("Vessa/A.cpp", "<boost/asio.hpp>", True),
        ("Vessa/A.cpp", "<Corvid/A.h>", True),
        ("Corvid/A.cpp", "<boost/asio.hpp>", False),
        ("Corvid/A.cpp", "<Vessa/Thread.h>", False),
        ("Corvid/A.cpp", "<Config/A.h>", True),
        ("Corvid/A.cpp", "<Orvel/Log.h>", True),
        ("Corvid/A.h", "<curl/curl.h>", True),
        ("Corvid/A.h", "<Corvid/detail/B.h>", True),
        ("Corvid/detail/B.h", "<curl/curl.h>", True),
        ("Corvid/detail/B.h", "<boost/asio/ip/tcp.hpp>", False),
        ("Corvid/B.h", "<boost/asio/ip/tcp.hpp>", True),
        ("Corvid/detail/deep/B.cpp", "<Orvel/World.h>", True),
        ("Orvel/World.cpp", "<Orvel/Backend.h>", False),
        ("Orvel/World.cpp", "<Orvel/OALBackend.h>", True),
        ("Orvel/World.cpp", '"Orvel/Backend.h"', True),
        ("Orvel/World.h", "<Orvel/detail/A.h>", True),
        ("Orvel/World.h", "<Config/A.h>", False),
        ("Orvel/OALBackend.h", "<AL/al.h>", True),
        ("Orvel/OALBackend.h", "<sys/socket.h>", True),
        ("Orvel/OALBackend.cpp", "<AL/al.h>", False),
        ("Orvel/detail/A.h", "<AL/alc.h>", False),
        ("Orvel/StartUpTypes.cpp", "<Orvel/OALBackend.h>", False),
        ("Orvel/NotYetListed.h", "<nlohmann/json.hpp>", True),
        ("examples/a.cpp", "<Orvel/World.h>", False),
        ("examples/a.cpp", "<Orvel/detail/A.h>", True),
        ("examples/a.cpp", "<Orvel/NotYetListed.h>", True),
    ]
    wrong = 0
    for file, include, forbidden in rows:
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, file)
            path.parent.mkdir(parents=True)
            path.write_text(f"// #include <Wrong/InAComment.h>\n\n  #  include {include} // why\n")
            found, _ = faults(pathlib.Path(folder), public)
            expected = [(file, 3, include[1:-1])] if forbidden else []
            if [pair[:3] for pair in found] != expected:
                wrong += 1
                print(f"{file}: {include}: expected {expected}, found {found}")
    print(f"{len(rows)} cases, {wrong} wrong")
    return wrong == 0


def main():
    if sys.argv[1:] == ["--self-test"]:
        return 0 if self_test() else 1
    root, public = pathlib.Path(sys.argv[1]), sys.argv[2:]
    found, count = faults(root, public)
    missing = [header for header in public if not (root / header).is_file()]
    for path, line, include, reason in found:
        print(f"{path}:{line}: {include}: {reason}")
    for header in missing:
        print(f"{header}: listed as public and not there")
    print(f"{count} files, {len(found)} forbidden includes")
    return 1 if found or missing or count == 0 or not public else 0


if __name__ == "__main__":
    sys.exit(main())
