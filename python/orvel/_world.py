"""Worlds, their parts and their back ends."""

from __future__ import annotations

import ctypes
import enum
import os
import warnings
from collections.abc import Iterable, Sequence
from ctypes import c_bool, c_double, c_float, c_int, c_size_t, c_uint, c_uint64
from types import TracebackType
from typing import TYPE_CHECKING, Any, NamedTuple, Optional, TypeVar, Union

from ._library import Object, floats, library

if TYPE_CHECKING:
    import numpy
    import numpy.typing

    Samples = numpy.typing.NDArray[Any]

Vector = tuple[float, float, float]
"""x, y, z in scene units: right-handed axes, +x right, +y up, -z ahead."""
Quaternion = tuple[float, float, float, float]
"""x, y, z, w of a unit quaternion."""
Floats = Union[Sequence[float], "numpy.typing.NDArray[Any]"]
"""Numbers for a vector or a quaternion: a tuple, a list or an array."""
Path = Union[str, "os.PathLike[str]"]

Self = TypeVar("Self", bound="Closing")


class Hearing(enum.IntEnum):
    """How a back end plays an emitter."""

    SILENT = 0
    """It does not play, or not yet."""
    MIXED = 1
    """It is heard."""
    WAITING = 2
    """It plays, and louder ones have all voices."""
    LOADING = 3
    """It plays when its sound has been loaded."""
    REFUSED = 4
    """Its sound cannot be played."""
    OVER = 5
    """Its sound has ended."""


class State(enum.IntEnum):
    """The state of a source or an emitter."""

    NONE = 0
    """Never played."""
    PLAY = 1
    PAUSE = 2
    STOP = 3


class Hull(NamedTuple):
    """The range of an emitter, in scene units: full level up to the inner extents, falling beyond
    them, constant beyond the outer ones; behind and in front."""

    max_back: float = 10.0
    max_front: float = 10.0
    min_back: float = 0.0
    min_front: float = 0.0


class Closing(Object):
    """An object that is closed by its user. A context manager."""

    def close(self) -> None:
        """Destroys it. It may be closed several times."""
        raise NotImplementedError

    def __enter__(self: Self) -> Self:
        return self

    def __exit__(
            self, kind: Optional[type[BaseException]], fault: Optional[BaseException],
            trace: Optional[TracebackType]) -> None:
        self.close()


def numpy_module() -> Any:
    """numpy, which is only needed where arrays are."""
    try:
        import numpy
    except ImportError:
        raise ImportError("arrays need numpy; install the package python3-numpy") from None
    return numpy


def param_line(text: str, params: dict[str, Any]) -> bytes:
    """A parameter line: `text`, then `params`."""
    def written(value: Any) -> str:
        if isinstance(value, bool):
            return "yes" if value else "no"
        if isinstance(value, (list, tuple)):
            value = ",".join(map(str, value))
        escaped = str(value).replace("\\", "\\\\").replace('"', '\\"')
        return f'"{escaped}"'

    return " ".join(
        filter(None, (text, *(f"{key}={written(value)}" for key, value in params.items())))).encode()


class World(Closing):
    """A scene with its sources, its emitters and one listener, and the back ends that render it.

    Use a world and all that belongs to it on one thread at a time, and all worlds with OpenAL back
    ends on the same one. Close it, or use it in a `with` statement.
    """

    def __init__(self) -> None:
        super().__init__(library.world_create(), "the world")

    def close(self) -> None:
        if self.alive:
            self._do(library.world_destroy)

    def __del__(self) -> None:
        if "_handle" in self.__dict__ and self.alive:
            warnings.warn(f"{self._name} was not closed", ResourceWarning, source=self)
            self.close()

    def update(self) -> None:
        """Updates every back end; call it once per iteration of your loop."""
        self._do(library.world_update)

    def clear(self) -> None:
        """Destroys all emitters and sources."""
        self._do(library.world_clear)

    @property
    def enabled(self) -> bool:
        """Whether the scene is audible."""
        return bool(self._do(library.world_enabled))

    @enabled.setter
    def enabled(self, enabled: bool) -> None:
        self._do(library.world_set_enabled, enabled)

    @property
    def spatialize(self) -> bool:
        """Whether emitters are spatial, from their next change of transform or hull on."""
        return bool(self._do(library.world_spatialize))

    @spatialize.setter
    def spatialize(self, spatialize: bool) -> None:
        self._do(library.world_set_spatialize, spatialize)

    @property
    def listener_position(self) -> Vector:
        """The place of the listener."""
        place = (c_float * 3)()
        self._do(library.world_listener, place, None)
        return place[0], place[1], place[2]

    @listener_position.setter
    def listener_position(self, position: Floats) -> None:
        self._do(library.world_set_listener, floats(position, 3), None)

    @property
    def listener_rotation(self) -> Quaternion:
        """The rotation of the listener."""
        turn = (c_float * 4)()
        self._do(library.world_listener, None, turn)
        return turn[0], turn[1], turn[2], turn[3]

    @listener_rotation.setter
    def listener_rotation(self, rotation: Floats) -> None:
        self._do(library.world_set_listener, None, floats(rotation, 4))

    def add_backend(self, kind: str = "default", text: str = "", **params: Any) -> Backend:
        """Adds a back end by the name of its kind (`backend_kinds()`), with a parameter line, as
        text or as keywords: `add_backend("client", port=4000, interfaces=["127.0.0.1"])`.

        A "client" gets `deferred=yes`, so that its thread does not read the scene meanwhile.
        """
        if kind == "client" and "deferred" not in text:
            params.setdefault("deferred", True)
        handle = self._do(library.world_add_backend, kind.encode(), param_line(text, params))
        return Backend(self, handle)

    def create_source(
            self, id: int = 0, *, file: Optional[Path] = None, url: Optional[str] = None,
            loop: bool = False, pitch: float = 1.0) -> Source:
        """Creates a source. Id 0 takes the next free one; servers identify a source by its id, from
        1 to 32767. See Source.set_file() and Source.url for `file` and `url`."""
        source = Source(self, self._do(library.source_create, id))
        try:
            if (loop, pitch) != (False, 1.0):
                source._do(library.source_set_param, loop, pitch)
            if file is not None:
                source.set_file(file)
            if url is not None:
                source.url = url
        except BaseException:
            source.destroy()
            raise
        return source

    def create_emitter(
            self, id: int = 0, *, labels: Iterable[str] = (), source: Optional[Source] = None,
            position: Optional[Floats] = None, rotation: Optional[Floats] = None,
            hull: Optional[Hull] = None, gain: float = 1.0, spatial: bool = True) -> Emitter:
        """Creates an emitter, served by the back ends that share one of the labels, or have none;
        without labels by all. Id 0 takes the next free one."""
        emitter = Emitter(self, self._do(
            library.emitter_create, ",".join(labels).encode(), id))
        try:
            if position is not None or rotation is not None:
                emitter.set_transform(position, rotation)
            if hull is not None:
                emitter.hull = hull
            if (gain, spatial) != (1.0, True):
                emitter._do(library.emitter_set_param, spatial, 0.0, gain)
            if source is not None:
                emitter.source = source
        except BaseException:
            emitter.destroy()
            raise
        return emitter

    def source(self, id: int) -> Optional[Source]:
        """The source with that id."""
        handle = self._do(library.source_find, id)
        return None if handle is None else Source(self, handle)

    def emitter(self, id: int) -> Optional[Emitter]:
        """The emitter with that id."""
        handle = self._do(library.emitter_find, id)
        return None if handle is None else Emitter(self, handle)

    @property
    def sources(self) -> list[Source]:
        """All sources, by their ids."""
        count = self._do(library.world_source_count)
        ids = (c_int * count)()
        self._do(library.world_source_ids, ids, count)
        return [Source(self, self._do(library.source_find, id)) for id in ids]

    @property
    def emitters(self) -> list[Emitter]:
        """All emitters, by their ids."""
        count = self._do(library.world_emitter_count)
        ids = (c_int * count)()
        self._do(library.world_emitter_ids, ids, count)
        return [Emitter(self, self._do(library.emitter_find, id)) for id in ids]


class Backend(Closing):
    """Renders or forwards a world; World.add_backend() makes one. It goes with its world."""

    def __init__(self, world: World, handle: int) -> None:
        super().__init__(handle, f'the back end "{library.backend_kind(handle)}"')
        self.world = world

    def close(self) -> None:
        if self.alive:
            self._do(library.backend_destroy)

    @property
    def kind(self) -> str:
        """The name of its kind; "openal" for "default"."""
        return str(self._do(library.backend_kind))

    @property
    def working(self) -> bool:
        """False if it can do nothing, such as an OpenAL back end without a device."""
        return bool(self._do(library.backend_working))

    @property
    def device(self) -> str:
        """The name of the sound device; empty without one."""
        return str(self._do(library.backend_device))

    @property
    def page(self) -> str:
        """URL of the page that it serves; empty without one."""
        return str(self._do(library.backend_page))

    @property
    def voices(self) -> int:
        """Number of emitters that it has voices for."""
        return int(self._do(library.backend_voices, None))

    @property
    def allowed_voices(self) -> int:
        """The limit of `voices`; 0 if it is not known."""
        allowed = c_size_t()
        self._do(library.backend_voices, allowed)
        return allowed.value

    def _ids(self, function: Any) -> list[int]:
        ids = (c_int * self._do(function, None, 0))()
        self._do(function, ids, len(ids))
        return list(ids)

    @property
    def refused(self) -> list[int]:
        """The ids of the emitters that it cannot play."""
        return self._ids(library.backend_refused)

    @property
    def waiting(self) -> list[int]:
        """The ids of the emitters that play and wait for a voice, because others are louder."""
        return self._ids(library.backend_waiting)

    @property
    def heard(self) -> dict[int, tuple[Hearing, float]]:
        """How each emitter is heard, by id, and its linear level at the listener; empty if the kind
        does not account for each."""
        count = self._do(library.backend_emitters, None, None, None, 0)
        ids, hearings, levels = (c_int * count)(), (c_int * count)(), (c_float * count)()
        self._do(library.backend_emitters, ids, hearings, levels, count)
        return {id: (Hearing(hearing), level)
                for id, hearing, level in zip(ids, hearings, levels)}

    @property
    def streams(self) -> int:
        """Number of sounds that are read while they play."""
        return int(self._do(library.backend_streams, None))

    @property
    def gaps(self) -> int:
        """How often the data of such a sound came too late."""
        gaps = c_uint64()
        self._do(library.backend_streams, gaps)
        return gaps.value

    @property
    def device_state(self) -> str:
        """"open", "opening", "absent", or "none" for a kind without a sound device."""
        return str(self._do(library.backend_device_state))

    @property
    def latency(self) -> float | None:
        """Seconds from a change until its effect leaves the device, as measured."""
        seconds = c_double()
        return seconds.value if self._do(library.backend_latency, seconds) else None

    @property
    def connections(self) -> int:
        """Number of servers that a "client" is connected to."""
        return int(self._do(library.backend_connections))


class Part(Object):
    """What sources and emitters have in common. A part belongs to its world."""

    _functions: tuple[Any, Any, Any]

    def __init__(self, world: World, handle: int, name: str, id: int) -> None:
        super().__init__(handle, f"{name} {id}")
        self.world = world
        self.id = id
        """Unique among the sources, or the emitters, of its world."""

    def destroy(self) -> None:
        """Removes it from its world. It may be destroyed several times."""
        if self.alive:
            self._do(self._functions[0])

    @property
    def state(self) -> State:
        """The state, which spreads between a source and its emitters. Setting an equal one has no
        effect."""
        return State(self._do(self._functions[1]))

    @state.setter
    def state(self, state: State) -> None:
        self._do(self._functions[2], state)

    def play(self) -> None:
        """Plays it, from its beginning unless it is paused."""
        if self.state == State.PLAY:  # a sound that has ended still has this state
            self.state = State.STOP
        self.state = State.PLAY

    def pause(self) -> None:
        self.state = State.PAUSE

    def stop(self) -> None:
        self.state = State.STOP


class Source(Part):
    """A sound; World.create_source() makes one. Any number of emitters may play it."""

    _functions = library.source_destroy, library.source_state, library.source_set_state

    def __init__(self, world: World, handle: int) -> None:
        super().__init__(world, handle, "source", library.source_id(handle))

    def set_file(self, path: Path, keep_channels: bool = False) -> None:
        """Decodes a sound file of any format that libsndfile reads. Its channels are mixed to one,
        so that the sound is spatial; with `keep_channels` one or two are kept."""
        self._do(library.source_set_file, os.fsencode(path), keep_channels)

    @property
    def url(self) -> str:
        """The URL of the sound (file, http, https) or the path of a file, which the back ends
        fetch; empty for a sound that was set otherwise. A failure to fetch is logged."""
        return str(self._do(library.source_url))

    @url.setter
    def url(self, url: str) -> None:
        self._do(library.source_set_url, url.encode())

    def set_samples(self, samples: Any, rate: int) -> None:
        """Sets the sound: an array of shape (frames) or (frames, channels), of int16, uint8 or
        floats with full scale 1; 1 or 2 channels, of which only 1 is spatial. `rate` in Hz.

        Everything with the buffer protocol will do, such as array.array("h"); it is copied once,
        into the source. Floats are converted, with numpy.
        """
        view = memoryview(samples)
        if view.format in ("f", "d"):
            numpy = numpy_module()
            view = memoryview(
                numpy.rint(numpy.clip(samples, -1.0, 1.0) * 32767.0).astype(numpy.int16))
        bits = {"h": 16, "<h": 16, "B": 8}.get(view.format)
        if bits is None or view.ndim not in (1, 2):
            raise ValueError(
                f"expected int16, uint8 or floats of shape (frames) or (frames, channels), found "
                f'the format "{view.format}" with {view.ndim} dimensions')
        channels = 1 if view.ndim == 1 or view.shape is None else view.shape[1]
        if not view.c_contiguous:
            view = memoryview(view.tobytes())
        data: Any = None
        if view.nbytes:
            if view.readonly:
                data = view.tobytes()
            else:
                data = (ctypes.c_char * view.nbytes).from_buffer(view)
        self._do(library.source_set_data, rate, bits, channels, data, view.nbytes)

    def _data(self) -> tuple[bytes, int, int, int]:
        rate, bits, channels, size = c_uint(), c_uint(), c_uint(), c_size_t()
        place = self._do(library.source_data, rate, bits, channels, size)
        # Copied, because the library's memory goes with the next change of the sound.
        data = ctypes.string_at(place, size.value) if place else b""
        return data, rate.value, bits.value, channels.value

    @property
    def samples(self) -> Samples:
        """The samples, of int16 or uint8 and shape (frames, channels); empty if the sound has none
        or is played from a URL. A copy; needs numpy."""
        numpy = numpy_module()
        data, _, bits, channels = self._data()
        kind = numpy.uint8 if bits == 8 else numpy.int16
        array: Samples = numpy.frombuffer(bytearray(data), kind).reshape(-1, max(1, channels))
        return array

    @property
    def rate(self) -> int:
        """Sample rate in Hz; 0 without samples."""
        rate = c_uint()
        self._do(library.source_data, rate, None, None, None)
        return rate.value

    @property
    def loop(self) -> bool:
        return bool(self._do(library.source_loop))

    @loop.setter
    def loop(self, loop: bool) -> None:
        self._do(library.source_set_param, loop, self.pitch)

    @property
    def pitch(self) -> float:
        """A factor on the playing speed; 1 as recorded."""
        return float(self._do(library.source_pitch))

    @pitch.setter
    def pitch(self, pitch: float) -> None:
        self._do(library.source_set_param, self.loop, pitch)

    @property
    def duration(self) -> float:
        """Duration in seconds at pitch 1, as measured by a back end; 0 until then."""
        return float(self._do(library.source_duration))


class Emitter(Part):
    """A place from which a source is heard; World.create_emitter() makes one."""

    _functions = library.emitter_destroy, library.emitter_state, library.emitter_set_state

    def __init__(self, world: World, handle: int) -> None:
        super().__init__(world, handle, "emitter", library.emitter_id(handle))

    @property
    def labels(self) -> tuple[str, ...]:
        """Its labels, given when it was created."""
        return tuple(filter(None, self._do(library.emitter_labels).split(",")))

    def set_transform(self, position: Optional[Floats], rotation: Optional[Floats]) -> None:
        """Sets position and rotation in one change; None leaves that one."""
        self._do(library.emitter_set_transform, floats(position, 3), floats(rotation, 4))

    @property
    def position(self) -> Vector:
        place = (c_float * 3)()
        self._do(library.emitter_transform, place, None)
        return place[0], place[1], place[2]

    @position.setter
    def position(self, position: Floats) -> None:
        self.set_transform(position, None)

    @property
    def rotation(self) -> Quaternion:
        turn = (c_float * 4)()
        self._do(library.emitter_transform, None, turn)
        return turn[0], turn[1], turn[2], turn[3]

    @rotation.setter
    def rotation(self, rotation: Floats) -> None:
        self.set_transform(None, rotation)

    @property
    def hull(self) -> Hull:
        """The range. An emitter is nearly silent until its inner extents are set."""
        extents = [c_float() for _ in Hull._fields]
        self._do(library.emitter_hull, *extents)
        return Hull(*(extent.value for extent in extents))

    @hull.setter
    def hull(self, hull: Hull) -> None:
        self._do(library.emitter_set_hull, *hull)

    @property
    def radius(self) -> float:
        """In scene units: it is heard as wide as a ball of that size. 0: a point."""
        return float(self._do(library.emitter_radius))

    @radius.setter
    def radius(self, radius: float) -> None:
        self._do(library.emitter_set_radius, radius)

    def _param(self) -> tuple[bool, float, float]:
        spatial, value, gain = c_bool(), c_float(), c_float()
        self._do(library.emitter_param, spatial, value, gain)
        return spatial.value, value.value, gain.value

    @property
    def spatial(self) -> bool:
        """Whether it is heard at its position; otherwise at the listener."""
        return self._param()[0]

    @spatial.setter
    def spatial(self, spatial: bool) -> None:
        _, value, gain = self._param()
        self._do(library.emitter_set_param, spatial, value, gain)

    @property
    def value(self) -> float:
        """A value of your own, passed on to the back ends."""
        return self._param()[1]

    @value.setter
    def value(self, value: float) -> None:
        spatial, _, gain = self._param()
        self._do(library.emitter_set_param, spatial, value, gain)

    @property
    def gain(self) -> float:
        """Linear; 1 is the recorded level."""
        return self._param()[2]

    @gain.setter
    def gain(self, gain: float) -> None:
        spatial, value, _ = self._param()
        self._do(library.emitter_set_param, spatial, value, gain)

    @property
    def start_offset(self) -> float:
        """The second of the sound at which it starts each time it is played."""
        return float(self._do(library.emitter_start_offset))

    @start_offset.setter
    def start_offset(self, seconds: float) -> None:
        self._do(library.emitter_set_start_offset, seconds)

    @property
    def source(self) -> Optional[Source]:
        """The connected source. Connecting is silent until the next change of state."""
        handle = self._do(library.emitter_source)
        return None if handle is None else Source(self.world, handle)

    @source.setter
    def source(self, source: Optional[Source]) -> None:
        self._do(library.emitter_set_source, source)


def backend_kinds() -> list[str]:
    """The names of all kinds of back ends."""
    return str(library.backend_kinds()).split()
