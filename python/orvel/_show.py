"""Scene files, captures, Open Sound Control and the monitor."""

from __future__ import annotations

import math
import os
import time
from collections.abc import Callable, Iterable
from ctypes import c_double
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Optional

from ._errors import Error, FileError, Problem
from ._library import (
    CCue, CProblem, ProgressCallback, Relay, RenderSettings, ReportCallback, TakeCallback, library)
from ._server import Server
from ._world import Closing, Path, World, numpy_module

if TYPE_CHECKING:
    from ._world import Samples


class File(Closing):
    """A scene or a capture: loaded once, then played and rendered any number of times."""

    _is_capture: bool

    def __init__(self, path: Path, fetch: bool = False) -> None:
        self.path = os.fspath(path)
        handle = library.show_file_load(os.fsencode(path), fetch)
        super().__init__(handle, f'the file "{self.path}"')
        self.problems: list[Problem] = self._problems(
            library.show_file_problem, library.show_file_problem_count(handle))
        """The mistakes in the file, or the parts of a capture that cannot be played."""
        try:
            self._do(library.show_file_good)
            if library.show_file_capture(handle) != self._is_capture:
                found, other = ("scene", "Scene") if self._is_capture else ("capture", "Capture")
                raise Error(f"{self.path} is a {found}; load it with orvel.{other}")
        except Error as fault:
            self.close()
            text = "\n".join(map(str, self.problems)) or str(fault)
            raise FileError(text, self.problems) from None

    def close(self) -> None:
        """Frees it. Playbacks of it go on."""
        if "_handle" in self.__dict__ and self.alive:
            self._do(library.show_file_destroy)

    def __del__(self) -> None:
        self.close()

    def _problems(self, get: Any, count: int) -> list[Problem]:
        problems = []
        for index in range(count):
            one = CProblem()
            self._do(get, index, one)
            problems.append(Problem(
                one.file.decode(errors="replace"), one.line, one.column,
                one.field.decode(errors="replace"), one.text.decode(errors="replace")))
        return problems

    @property
    def sources(self) -> int:
        """Number of sources, those of a timeline included; for a capture the largest possible."""
        return int(self._do(library.show_file_sources))

    @property
    def emitters(self) -> int:
        """Number of emitters, in the same way."""
        return int(self._do(library.show_file_emitters))

    @property
    def channels(self) -> int:
        """Number of channels of render(): 2, left and right, unless the scene names another
        output."""
        return int(self._do(library.show_file_channels))

    def play(self, world: World) -> Playback:
        """Prepares to play it on a world, which is cleared at the start."""
        return Playback(world, self)

    def render(
            self, rate: int = 44100, *, start: float = 0.0, seconds: float = 0.0,
            progress: Optional[Callable[[float], object]] = None) -> Samples:
        """Renders it offline, faster than real time: float32 of shape (frames, channels), two
        unless the scene names another output; full scale is 1. From `start`, in seconds of the file, for `seconds`; 0: until the end.

        `progress` is called with the rendered seconds; an exception of it cancels the rendering.
        Needs numpy.
        """
        numpy = numpy_module()
        samples = bytearray()
        channels = self.channels
        relay = Relay()

        def take(block: Any, frames: int, user: Any) -> bool:
            try:
                samples.extend(numpy.ctypeslib.as_array(block, (channels * frames,)).data.cast("B"))
                if progress is not None:
                    progress(len(samples) / 4 / channels / rate)
            except BaseException as fault:
                relay.keep(fault)
                return False
            return True

        try:
            self._do(library.show_render, RenderSettings(rate, True, start, seconds),
                     TakeCallback(take), None)
        except Error:
            relay.raise_kept()
            raise
        array: Samples = numpy.frombuffer(samples, numpy.float32).reshape(-1, channels)
        return array

    def render_file(
            self, path: Path, rate: int = 44100, *, floats: bool = False, start: float = 0.0,
            seconds: float = 0.0, progress: Optional[Callable[[float], object]] = None) -> None:
        """Renders it to a WAV file, which appears when it is complete: of 16-bit integers, or with
        `floats` of 32-bit floats. `progress` is called with values up to 1; an exception of it
        cancels the rendering."""
        relay = Relay()

        def report(done: float, user: Any) -> bool:
            try:
                if progress is not None:
                    progress(done)
            except BaseException as fault:
                relay.keep(fault)
                return False
            return True

        try:
            self._do(library.show_render_file, os.fsencode(path),
                     RenderSettings(rate, floats, start, seconds), ProgressCallback(report), None)
        except Error:
            relay.raise_kept()
            raise


@dataclass(frozen=True)
class Cue:
    """A named part of a scene's timeline, in seconds of the scene."""

    name: str
    at: float
    until: float
    """Infinity: the end of the scene."""


class Scene(File):
    """A scene file. A file with mistakes raises FileError, which has all of them."""

    _is_capture = False

    def __init__(self, path: Path) -> None:
        super().__init__(path)

    def check(self) -> list[Problem]:
        """Warnings about values that are unlikely to be intended."""
        return self._problems(
            library.show_file_warning, self._do(library.show_file_check, None))

    @property
    def duration(self) -> float:
        """The end of the scene in seconds, found by playing it through without sound. Sounds by URL
        count as 0."""
        seconds = c_double()
        self._do(library.show_file_check, seconds)
        return seconds.value

    @property
    def cues(self) -> list[Cue]:
        """The cues, in the order of the file."""
        cues = []
        for index in range(int(self._do(library.show_file_cue_count))):
            one = CCue()
            self._do(library.show_file_cue, index, one)
            cues.append(Cue(one.name.decode(), one.at, one.until))
        return cues

    def picture(self) -> str:
        """The scene from above, as an SVG document."""
        return str(self._do(library.show_file_picture))

    def _repr_svg_(self) -> str:  # shown by notebooks
        return self.picture()


class Capture(File):
    """A capture of a sound server. With `fetch` sounds that it names by URL are fetched: set it
    only for captures that you trust. `Capture.record` makes one."""

    _is_capture = True

    @property
    def complete(self) -> bool:
        """Whether it can be played with all of its sounds."""
        return bool(self._do(library.show_file_complete))

    @staticmethod
    def record(
            server: Server, path: Path, scene: Optional[Path] = None,
            max_bytes: int = 0) -> Recorder:
        """Records the clients' changes of a server to a new file, of at most `max_bytes`; 0: no
        limit. `scene` is the scene file of the server's sources, with which a replay finds their
        sounds."""
        return Recorder(server, path, scene, max_bytes)


class Recorder(Closing):
    """Records the clients of a server, with which it goes; Capture.record() makes one. Leaving its
    `with` statement completes the capture."""

    def __init__(
            self, server: Server, path: Path, scene: Optional[Path], max_bytes: int) -> None:
        handle = server._server._do(
            library.show_recorder_create, os.fsencode(path),
            None if scene is None else os.fsencode(scene), max_bytes)
        super().__init__(handle, f'the recorder of "{os.fspath(path)}"')
        self.server = server

    def close(self) -> None:
        """Completes the capture, and waits until it is on the disk. Raises Error if it is not
        complete."""
        if self.alive:
            try:
                self._do(library.show_recorder_finish)
            finally:
                self._do(library.show_recorder_destroy)

    def flush(self) -> None:
        """Writes buffered data to the file; call it several times a second. Raises Error once the
        recording has ended by itself."""
        self._do(library.show_recorder_flush)

    @property
    def events(self) -> int:
        """Number of recorded events."""
        return int(self._do(library.show_recorder_events))

    @property
    def seconds(self) -> float:
        """Recorded time."""
        return float(self._do(library.show_recorder_seconds))


class Playback(Closing):
    """A file being played on a world, with which it goes; File.play() makes one. It has no clock:
    call start(), then advance() with the time. run() does so in real time."""

    def __init__(self, world: World, file: File) -> None:
        super().__init__(world._do(library.show_playback_create, file), f"the playback of {file.path}")
        self.world = world

    def close(self) -> None:
        """Ends it; the parts stay in the world."""
        if self.alive:
            self._do(library.show_playback_destroy)

    def __del__(self) -> None:
        if "_handle" in self.__dict__:
            self.close()

    def start(self, at: float = 0.0) -> None:
        """Brings the world to that second of the file, with every sound at its current position.
        May be called again."""
        self._do(library.show_playback_start, at)

    def arm(self) -> None:
        """Loads the sounds and waits for go() or cue(), with the clock at 0; the scene then stops at
        the end of each cue. In place of start()."""
        self._do(library.show_playback_arm)

    def go(self) -> None:
        """Plays the next cue. Raises Error if there is none."""
        self._do(library.show_playback_go)

    def cue(self, name: str) -> None:
        """Plays the cue with this name. Raises Error if there is none."""
        self._do(library.show_playback_cue, name.encode())

    def seek(self, seconds: float) -> None:
        """Goes to a time of the file, and plays on from there unless paused."""
        self._do(library.show_playback_seek, seconds)

    def pause(self, paused: bool = True) -> None:
        """Halts the timeline and the sounds, or lets them go on."""
        self._do(library.show_playback_pause, paused)

    def advance(self, seconds: float) -> None:
        """Applies everything due up to this time, which must not decrease. It is the time of the file
        until arm(), go(), cue(), seek() or pause() is called."""
        self._do(library.show_playback_advance, seconds)

    @property
    def position(self) -> float:
        """The time of the file."""
        return float(self._do(library.show_playback_position))

    @property
    def state(self) -> str:
        """One of "waiting", "playing", "paused" and "over"."""
        return str(self._do(library.show_playback_state))

    @property
    def current_cue(self) -> str:
        """The name of the present cue; empty if there is none."""
        return str(self._do(library.show_playback_current_cue))

    @property
    def next_cue(self) -> str:
        """The name of the cue that go() would play; empty if there is none."""
        return str(self._do(library.show_playback_next_cue))

    @property
    def next(self) -> float:
        """The next time at which to advance; infinity if nothing is left."""
        return float(self._do(library.show_playback_next))

    @property
    def end(self) -> float:
        """The end in seconds; it may grow when a back end has fetched a sound."""
        return float(self._do(library.show_playback_end))

    def run(self, at: float = 0.0, until: float = math.inf) -> None:
        """Plays in real time, from one second of the file until another or its end, and updates the
        world."""
        self.start(at)
        began = time.monotonic() - at
        while (now := time.monotonic() - began) < min(self.end, until):
            self.advance(now)
            self.world.update()
            time.sleep(max(0.0, min(self.next - now, self.end - now, until - now, 0.05)))


class OscInput(Closing):
    """Receives Open Sound Control over UDP and TCP for a world, with which it goes. `address` is an
    IPv4 address of this machine; port 0: chosen by the system; `scale`: scene units per normalised
    unit; `report` is called inside serve() with a sentence about an invalid message, and an
    exception of it leaves serve()."""

    def __init__(
            self, world: World, address: str = "127.0.0.1", port: int = 0, scale: float = 10.0,
            report: Optional[Callable[[str], object]] = None) -> None:
        relay = Relay()

        def on_report(text: bytes, user: Any) -> None:
            try:
                if report is not None:
                    report(text.decode(errors="replace"))
            except BaseException as fault:
                relay.keep(fault)

        self._callback = ReportCallback(on_report)
        self._relay = relay
        super().__init__(
            world._do(
                library.show_osc_create, address.encode(), port, scale, self._callback, None),
            "the OSC input")
        self.world = world

    def close(self) -> None:
        if self.alive:
            self._do(library.show_osc_destroy)

    def control(self, playback: Optional[Playback]) -> None:
        """Lets messages such as /orvel/go control a playback, which may end first; None: none."""
        self._do(library.show_osc_control, playback)

    @property
    def port(self) -> int:
        return int(self._do(library.show_osc_port))

    def fileno(self) -> int:
        """A descriptor that is readable when data has arrived, for select. It does not show
        messages that wait for their time, so also serve several times a second."""
        return int(self._do(library.show_osc_descriptor))

    def serve(self, seconds: float = 0.0) -> None:
        """Applies received and due messages; first waits up to `seconds` for work."""
        self._do(library.show_osc_serve, seconds)
        self._relay.raise_kept()


class Monitor(Closing):
    """Shows a world, with which it goes, to browsers and programs; the page is served inside
    World.update(). Port 0: a free one; -1: 33790, or a free one if that is in use. `host_names` are
    names that browsers may use besides this machine's. There is no password."""

    def __init__(
            self, world: World, address: str = "127.0.0.1", port: int = -1,
            host_names: Iterable[str] = ()) -> None:
        super().__init__(
            world._do(library.show_monitor_create, address.encode(), port,
                      ",".join(host_names).encode()), "the monitor")
        self.world = world

    def close(self) -> None:
        if self.alive:
            self._do(library.show_monitor_destroy)

    @property
    def url(self) -> str:
        """Its URL, such as "http://127.0.0.1:33790/"."""
        return str(self._do(library.show_monitor_url))
