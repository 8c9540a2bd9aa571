"""interfaces.py SOURCE-TREE: compares the interfaces in C++, C and Python.

Each setter in C++ must have one in C and in Python, each setter in C a getter, and each function in C a
declaration of the same types in the package, except for those below, which have reasons.
"""
import ctypes
import pathlib
import re
import sys

import orvel
from orvel import _library

root = pathlib.Path(sys.argv[1])
# A setter in C++: the function in C and the attribute in Python, where they do not follow from it.
RENAMED = {
    "World.setListenerTransform": ("world_set_listener", "World.listener_position"),
    "Source.setData": ("source_set_data", "Source.set_samples"),
    "Source.setDataFromURL": ("source_set_url", "Source.url"),
    "Source.setParam": ("source_set_param", "Source.loop"),
    "Emitter.setTransform": ("emitter_set_transform", "Emitter.set_transform"),
    "Emitter.setParam": ("emitter_set_param", "Emitter.gain"),
    "Server.setMulticastAddress": ("server_set_multicast", "Server.multicast"),
    "Server.setMulticastPort": ("server_set_multicast", "Server.multicast"),
    "Server.setMulticastTtl": ("server_set_multicast", "Server.multicast"),
    "Server.setKeys": ("server_set_keys", "Server.set_keys"),
    "Log.setLevel": ("log_set_level", "set_log_level"),
    "Log.setCallback": ("log_set_callback", ""),
}
NOT_IN_C = {
    "Server.setTimed": "its program asks for nextDue() and overrides what happens then, as orvel serve does",
    "Server.setObserver": "orvel_show_recorder_create() uses the only one",
    "Log.setHeader": "a callback gets the level; the text of the header is for streams",
    "Log.setModuleFilter": "a callback filters",
    "Log.setStream": "a callback writes where it likes",
    "Log.setFile": "a callback writes where it likes",
}
NO_GETTER = {
    "server_set_keys": "the path is known to its owner, and the keys are secret",
    "source_set_file": "its samples are read with orvel_source_data()",
    "log_set_callback": "a callback is known to its owner",
    "server_set_reset_callback": "a callback is known to its owner",
}
GETTERS = {"log_set_level": "log_level", "source_set_param": "source_loop"}
# Functions in C that the package does without.
NOT_IN_PYTHON = {
    "set_last_error": "for libraries in C that build on this one",
    "last_error": "declared by itself, because the others' errors come from it",
    "server_create": "server_create_at() with port 0 does the same",
}
C_TYPES = {
    "void": [None], "bool": [ctypes.c_bool], "int": [ctypes.c_int], "unsigned": [ctypes.c_uint],
    "unsigned short": [ctypes.c_ushort], "float": [ctypes.c_float], "double": [ctypes.c_double],
    "size_t": [ctypes.c_size_t], "uint64_t": [ctypes.c_uint64], "orvel_state": [ctypes.c_int],
    "const char*": [ctypes.c_char_p], "const void*": [ctypes.c_void_p], "void*": [ctypes.c_void_p],
    "orvel_log_callback": [_library.LogCallback], "orvel_reset_callback": [_library.ResetCallback],
    "orvel_show_report": [_library.ReportCallback], "orvel_show_take": [_library.TakeCallback],
    "orvel_show_progress": [_library.ProgressCallback],
    "orvel_show_problem*": [ctypes.POINTER(_library.CProblem)],
    "orvel_show_cue*": [ctypes.POINTER(_library.CCue)],
    "const orvel_show_render_settings*": [ctypes.POINTER(_library.RenderSettings)],
}


def python_types(c):
    c = re.sub(r"\bconst (float|int)", r"\1", c)
    if c in C_TYPES:
        return C_TYPES[c]
    if re.fullmatch(r"orvel_\w+\*", c):
        return [ctypes.c_void_p]
    return [ctypes.POINTER(C_TYPES[c.removesuffix("*")][0])] if c.endswith("*") else []


def snake(name):
    return re.sub(r"(?<!^)(?=[A-Z])", "_", name).lower()


def code(path):
    return re.sub(r"//.*", "", (root / path).read_text())


functions = {}
for header in ("Orvel/orvel.h", "Show/orvel_show.h"):
    for result, name, arguments in re.findall(
            r"_EXPORT\s+([\w\s*]+?)\s*\borvel_(\w+)\(([^)]*)\);", code(header)):
        kinds = [re.sub(r"\s*\b\w+$", "", " ".join(a.split())) for a in arguments.split(",")]
        functions[name] = [" ".join(result.split()).replace(" *", "*"),
                           *([] if kinds in ([""], [[]]) or arguments.strip() == "void" else kinds)]

faults = []
for name, types in functions.items():
    declared = _library._FUNCTIONS.get(name)
    if (declared is None) != (name in NOT_IN_PYTHON):
        faults.append(f"orvel_{name}() must be either in _library.py or in NOT_IN_PYTHON")
    elif declared is not None:
        declared = [declared[0][0], *declared[1:]]
        if len(declared) != len(types) or not all(d in python_types(t) for d, t in zip(declared, types)):
            faults.append(f"orvel_{name}(): {types} in C, {declared} in _library.py")
    getter = GETTERS.get(name, name.replace("_set_", "_"))
    if "_set_" in name and name not in NOT_IN_PYTHON and (getter in functions) == (name in NO_GETTER):
        faults.append(f"orvel_{name}() must have either orvel_{getter}() or a reason in NO_GETTER")
faults += [f"_library.py declares orvel_{name}(), which no header has"
           for name in _library._FUNCTIONS.keys() - functions.keys()]

setters = {}
for kind, owners in {"World": ["World"], "WorldPart": ["Source", "Emitter"], "Source": ["Source"],
                     "Emitter": ["Emitter"], "Server": ["Server"], "Log": ["Log"]}.items():
    body = re.search(rf"class ORVEL_EXPORT [^;{{]*?\b{kind}\b.*?\n}};", code(f"Orvel/{kind}.h"), re.S)[0]
    for setter in re.findall(r"^    (?:virtual |static )?\w+ (set\w+)\((?!Source& |Emitter& |\))", body, re.M):
        for owner in owners:
            setters[f"{owner}.{setter}"] = (owner, setter)
for full, (owner, setter) in setters.items():
    prefix = owner.lower()
    rest = snake(setter.removeprefix("set"))
    in_c, in_python = RENAMED.get(full, (f"{prefix}_set_{rest}", f"{owner}.{rest}"))
    if (in_c in functions) == (full in NOT_IN_C):
        faults.append(f"{full}() must have either orvel_{in_c}() or a reason in NOT_IN_C")
    if full in NOT_IN_C:
        continue
    found = orvel
    for name in filter(None, in_python.split(".")):
        found = getattr(found, name, None)
    if found is None or isinstance(found, property) and found.fset is None:
        faults.append(f"{full}() has no settable orvel.{in_python}")
    print(f"{full:<30} orvel_{in_c:<28} {in_python or '(logging)'}")
faults += [f"{full}() has a reason in NOT_IN_C, but does not exist" for full in NOT_IN_C.keys() - setters]
if len(setters) < 20 or len(functions) < 100:
    faults.append(f"only {len(setters)} setters and {len(functions)} functions were found")
print("\n".join(faults) or f"{len(setters)} setters, {len(functions)} functions in C: complete")
sys.exit(1 if faults else 0)
