"""Spatial sound: one scene, any number of back ends.

    import orvel
    samples = orvel.Scene("scene.json").render()

A failure raises Error with the library's reason, and the use of an object that is gone GoneError.
The library's log goes to the logger "orvel". Positions are right-handed (+x right, +y up, -z ahead)
in scene units, rotations unit quaternions x, y, z, w, gains linear, and times in seconds.
"""

from ._build import VERSION as __version__
from ._errors import Error, FileError, GoneError, Problem
from ._keys import Key, Keys
from ._log import LogLevel, log_level, set_log_level
from ._render import Renderer
from ._server import Multicast, Server
from ._show import Capture, Cue, File, Monitor, OscInput, Playback, Recorder, Scene
from ._world import Backend, Emitter, Hearing, Hull, Part, Source, State, World, backend_kinds

__all__ = [
    "Backend", "Capture", "Cue", "Emitter", "Error", "File", "FileError", "GoneError", "Hearing",
    "Hull", "Key", "Keys", "LogLevel", "Monitor", "Multicast", "OscInput", "Part", "Playback",
    "Problem", "Recorder", "Renderer", "Scene", "Server", "Source", "State", "World",
    "__version__", "backend_kinds", "log_level", "set_log_level",
]
