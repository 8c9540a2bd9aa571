"""The functions of the libraries in C, with their types and their errors."""

from __future__ import annotations

import ctypes
import operator
import pathlib
from collections.abc import Callable
from ctypes import (
    POINTER, Structure, c_bool, c_char_p, c_double, c_float, c_int, c_size_t, c_uint, c_uint64,
    c_ushort, c_void_p)
from typing import Any

from . import _build
from ._errors import Error, GoneError

TEXT = c_char_p
FLOATS = POINTER(c_float)

LogCallback = ctypes.CFUNCTYPE(None, c_int, c_char_p, c_void_p)
ResetCallback = ctypes.CFUNCTYPE(None, c_void_p, c_void_p)
ReportCallback = ctypes.CFUNCTYPE(None, c_char_p, c_void_p)
ProgressCallback = ctypes.CFUNCTYPE(c_bool, c_double, c_void_p)
TakeCallback = ctypes.CFUNCTYPE(c_bool, POINTER(c_float), c_size_t, c_void_p)


class CProblem(Structure):
    _fields_ = [("file", TEXT), ("line", c_int), ("column", c_int), ("field", TEXT), ("text", TEXT)]


class CCue(Structure):
    _fields_ = [("name", TEXT), ("at", c_double), ("until", c_double)]


class RenderSettings(Structure):
    _fields_ = [("rate", c_uint), ("floats", c_bool), ("start", c_double), ("seconds", c_double)]


def _load() -> ctypes.CDLL:
    name = f"liborvel-show.so.{_build.ABI}"
    if _build.FOLDER:
        name = str((pathlib.Path(__file__).parent / _build.FOLDER).resolve() / name)
    try:
        return ctypes.CDLL(name)
    except OSError as fault:
        raise ImportError(f"orvel needs {name} of the same version: {fault}") from None


_library = _load()


def _last_error() -> Error:
    return Error(_library.orvel_last_error().decode(errors="replace"))


def _must(result: Any, function: Any, arguments: tuple[Any, ...]) -> Any:
    if not result:
        raise _last_error()
    return result


def _count(result: Any, function: Any, arguments: tuple[Any, ...]) -> Any:
    if result < 0:
        raise _last_error()
    return result


def _read(result: Any, function: Any, arguments: tuple[Any, ...]) -> Any:
    # 0 and its like may be values; for a handle whose object is gone they are the failure.
    if not result and arguments and not _library.orvel_is_alive(arguments[0]):
        raise _last_error()
    return result


def _text(result: Any, function: Any, arguments: tuple[Any, ...]) -> str:
    return (_read(result, function, arguments) or b"").decode(errors="replace")


def _list(result: Any, function: Any, arguments: tuple[Any, ...]) -> list[list[str]]:
    if result is None:
        raise _last_error()
    return [line.split() for line in result.decode().splitlines()]


def _free(result: Any, function: Any, arguments: tuple[Any, ...]) -> None:
    pass


# How a result is to be understood: its type, and the function that checks it.
_DONE = (c_bool, _must)  # false is the failure
_MADE = (c_void_p, _must)  # null is the failure
_FOUND = (c_void_p, _read)  # null is none
_YES = (c_bool, _read)
_TEXT = (TEXT, _text)
_LISTED = (TEXT, _list)  # null is the failure
_INT = (c_int, _read)
_COUNTED = (c_int, _count)  # negative is the failure
_TIME = (c_double, _count)
_SIZE = (c_size_t, _read)
_UINT = (c_uint, _read)
_PORT = (c_ushort, _read)
_FLOAT = (c_float, _read)
_DOUBLE = (c_double, _read)
_LONG = (c_uint64, _read)
_NOTHING = (None, _free)

_H = c_void_p  # a handle
_FUNCTIONS: dict[str, tuple[Any, ...]] = {
    "version": (_TEXT,),
    "is_alive": ((c_bool, None), _H),
    "log_set_callback": (_DONE, LogCallback, c_void_p),
    "log_set_level": (_DONE, c_int),
    "log_level": (_INT,),
    "world_create": (_MADE,),
    "world_destroy": (_DONE, _H),
    "world_update": (_DONE, _H),
    "world_clear": (_DONE, _H),
    "world_set_enabled": (_DONE, _H, c_bool),
    "world_enabled": (_YES, _H),
    "world_set_spatialize": (_DONE, _H, c_bool),
    "world_spatialize": (_YES, _H),
    "world_set_listener": (_DONE, _H, FLOATS, FLOATS),
    "world_listener": (_DONE, _H, FLOATS, FLOATS),
    "world_source_count": (_SIZE, _H),
    "world_emitter_count": (_SIZE, _H),
    "world_source_ids": (_SIZE, _H, POINTER(c_int), c_size_t),
    "world_emitter_ids": (_SIZE, _H, POINTER(c_int), c_size_t),
    "backend_kinds": (_TEXT,),
    "world_add_backend": (_MADE, _H, TEXT, TEXT),
    "backend_destroy": (_DONE, _H),
    "backend_kind": (_TEXT, _H),
    "backend_working": (_YES, _H),
    "backend_device": (_TEXT, _H),
    "backend_page": (_TEXT, _H),
    "backend_voices": (_SIZE, _H, POINTER(c_size_t)),
    "backend_waiting": (_SIZE, _H, POINTER(c_int), c_size_t),
    "backend_refused": (_SIZE, _H, POINTER(c_int), c_size_t),
    "backend_emitters": (
        _SIZE, _H, POINTER(c_int), POINTER(c_int), FLOATS, c_size_t),
    "backend_streams": (_SIZE, _H, POINTER(c_uint64)),
    "backend_device_state": (_TEXT, _H),
    "backend_latency": (_YES, _H, POINTER(c_double)),
    "backend_connections": (_SIZE, _H),
    "backend_render": (_DONE, _H, FLOATS, c_uint),
    "backend_rate": (_UINT, _H),
    "source_create": (_MADE, _H, c_int),
    "source_find": (_FOUND, _H, c_int),
    "source_destroy": (_DONE, _H),
    "source_id": (_INT, _H),
    "source_set_data": (_DONE, _H, c_uint, c_uint, c_uint, c_void_p, c_size_t),
    "source_set_url": (_DONE, _H, TEXT),
    "source_set_file": (_DONE, _H, TEXT, c_bool),
    "source_data": (
        _FOUND, _H, POINTER(c_uint), POINTER(c_uint), POINTER(c_uint), POINTER(c_size_t)),
    "source_url": (_TEXT, _H),
    "source_set_param": (_DONE, _H, c_bool, c_float),
    "source_loop": (_YES, _H),
    "source_pitch": (_FLOAT, _H),
    "source_set_state": (_DONE, _H, c_int),
    "source_state": (_INT, _H),
    "source_duration": (_FLOAT, _H),
    "emitter_create": (_MADE, _H, TEXT, c_int),
    "emitter_find": (_FOUND, _H, c_int),
    "emitter_destroy": (_DONE, _H),
    "emitter_id": (_INT, _H),
    "emitter_labels": (_TEXT, _H),
    "emitter_set_transform": (_DONE, _H, FLOATS, FLOATS),
    "emitter_transform": (_DONE, _H, FLOATS, FLOATS),
    "emitter_set_hull": (_DONE, _H, c_float, c_float, c_float, c_float),
    "emitter_hull": (_DONE, _H, FLOATS, FLOATS, FLOATS, FLOATS),
    "emitter_set_param": (_DONE, _H, c_bool, c_float, c_float),
    "emitter_param": (_DONE, _H, POINTER(c_bool), FLOATS, FLOATS),
    "emitter_set_radius": (_DONE, _H, c_float),
    "emitter_radius": (_FLOAT, _H),
    "emitter_set_start_offset": (_DONE, _H, c_double),
    "emitter_start_offset": (_DOUBLE, _H),
    "emitter_set_source": (_DONE, _H, _H),
    "emitter_source": (_FOUND, _H),
    "emitter_set_state": (_DONE, _H, c_int),
    "emitter_state": (_INT, _H),
    "server_create_at": (_MADE, TEXT, c_ushort),
    "server_destroy": (_DONE, _H),
    "server_world": (_MADE, _H),
    "server_set_reset_callback": (_DONE, _H, ResetCallback, c_void_p),
    "server_set_id": (_DONE, _H, TEXT),
    "server_id": (_INT, _H),
    "server_set_multicast": (_DONE, _H, TEXT, c_ushort, c_int),
    "server_multicast": (_TEXT, _H, POINTER(c_ushort), POINTER(c_int)),
    "server_set_interfaces": (_DONE, _H, TEXT),
    "server_interfaces": (_TEXT, _H),
    "server_set_keys": (_DONE, _H, TEXT),
    "server_port": (_PORT, _H),
    "server_clients": (_SIZE, _H),
    "server_poll": (_COUNTED, _H, c_double),
    "keys_new": (_DONE, TEXT, TEXT),
    "keys_grant": (_DONE, TEXT, TEXT, TEXT, TEXT),
    "keys_revoke": (_DONE, TEXT, TEXT),
    "keys_list": (_LISTED, TEXT),
    "show_file_load": (_MADE, TEXT, c_bool),
    "show_file_destroy": (_NOTHING, _H),
    "show_file_good": (_DONE, _H),
    "show_file_capture": (_YES, _H),
    "show_file_complete": (_YES, _H),
    "show_file_sources": (_SIZE, _H),
    "show_file_emitters": (_SIZE, _H),
    "show_file_channels": (_SIZE, _H),
    "show_file_picture": (_TEXT, _H),
    "show_file_problem_count": (_SIZE, _H),
    "show_file_cue_count": (_SIZE, _H),
    "show_file_cue": (_DONE, _H, c_size_t, POINTER(CCue)),
    "show_file_problem": (_DONE, _H, c_size_t, POINTER(CProblem)),
    "show_file_check": (_COUNTED, _H, POINTER(c_double)),
    "show_file_warning": (_DONE, _H, c_size_t, POINTER(CProblem)),
    "show_playback_create": (_MADE, _H, _H),
    "show_playback_destroy": (_NOTHING, _H),
    "show_playback_start": (_DONE, _H, c_double),
    "show_playback_advance": (_DONE, _H, c_double),
    "show_playback_arm": (_DONE, _H),
    "show_playback_go": (_DONE, _H),
    "show_playback_cue": (_DONE, _H, TEXT),
    "show_playback_seek": (_DONE, _H, c_double),
    "show_playback_pause": (_DONE, _H, c_bool),
    "show_playback_position": (_TIME, _H),
    "show_playback_state": (_TEXT, _H),
    "show_playback_current_cue": (_TEXT, _H),
    "show_playback_next_cue": (_TEXT, _H),
    "show_playback_next": (_TIME, _H),
    "show_playback_end": (_TIME, _H),
    "show_render_file": (_DONE, _H, TEXT, POINTER(RenderSettings), ProgressCallback, c_void_p),
    "show_render": (_DONE, _H, POINTER(RenderSettings), TakeCallback, c_void_p),
    "show_recorder_create": (_MADE, _H, TEXT, TEXT, c_uint64),
    "show_recorder_destroy": (_NOTHING, _H),
    "show_recorder_flush": (_DONE, _H),
    "show_recorder_finish": (_DONE, _H),
    "show_recorder_events": (_LONG, _H),
    "show_recorder_seconds": (_DOUBLE, _H),
    "show_osc_create": (_MADE, _H, TEXT, c_ushort, c_float, ReportCallback, c_void_p),
    "show_osc_destroy": (_NOTHING, _H),
    "show_osc_port": (_PORT, _H),
    "show_osc_descriptor": (_COUNTED, _H),
    "show_osc_control": (_DONE, _H, _H),
    "show_osc_serve": (_DONE, _H, c_double),
    "show_monitor_create": (_MADE, _H, TEXT, c_int, TEXT),
    "show_monitor_destroy": (_NOTHING, _H),
    "show_monitor_url": (_TEXT, _H),
}


class _Whole:
    """An argument of an integer type of C. ctypes would take a number modulo its range."""

    def __init__(self, kind: Any, least: int) -> None:
        self._kind, self._least = kind, least
        self._most = least + 2 ** (8 * ctypes.sizeof(kind)) - 1

    def from_param(self, value: Any) -> Any:
        if not self._least <= operator.index(value) <= self._most:
            raise ValueError(f"expected a number from {self._least} to {self._most}, found {value}")
        return self._kind(value)


_WHOLE: dict[Any, _Whole] = {
    c_int: _Whole(c_int, -2 ** 31),
    **{kind: _Whole(kind, 0) for kind in (c_ushort, c_uint, c_uint64, c_size_t)}}


def _called(function: Any) -> Callable[..., Any]:
    def call(*arguments: Any) -> Any:
        try:
            return function(*arguments)
        except ctypes.ArgumentError as fault:  # its text: argument 2: ValueError: the reason
            number, kind, reason = str(fault).split(": ", 2)
            if kind == "ValueError":
                raise ValueError(reason) from None
            found = arguments[int(number.split()[1]) - 1]
            raise TypeError(f"{function.__name__} cannot take {found!r}") from None
    return call


class _Functions:
    """The functions, without their prefix "orvel_"."""

    def __init__(self) -> None:
        _library.orvel_last_error.restype = TEXT
        for name, ((result, check), *arguments) in _FUNCTIONS.items():
            function = getattr(_library, "orvel_" + name)
            function.restype = result
            function.argtypes = [_WHOLE.get(kind, kind) for kind in arguments]
            if check is not None:
                function.errcheck = check
            setattr(self, name, _called(function))

    def __getattr__(self, name: str) -> Any:  # for the type checker
        raise AttributeError(name)


library = _Functions()


class Object:
    """Something of the library behind a handle. Its use after its end raises GoneError."""

    def __init__(self, handle: int, name: str) -> None:
        self._handle = handle
        self._name = name

    @property
    def alive(self) -> bool:
        """Whether it still exists."""
        return bool(library.is_alive(self._handle))

    def _do(self, function: Any, *arguments: Any) -> Any:
        """Calls a function of the library for this object. Other objects stand for their handles."""
        try:
            return function(self._handle, *(
                a._handle if isinstance(a, Object) else a for a in arguments))
        except Error:
            for given in (self, *arguments):
                if isinstance(given, Object) and not given.alive:
                    raise GoneError(
                        f"{given._name} is gone: it was closed, destroyed or cleared, alone or "
                        "with its world") from None
            raise

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Object) and other._handle == self._handle

    def __hash__(self) -> int:
        return hash(self._handle)

    def __repr__(self) -> str:
        return f"<orvel: {self._name}{'' if self.alive else ', gone'}>"


class Relay:
    """Passes an exception of a callback through the library, to the caller of the function."""

    def __init__(self) -> None:
        self._fault: BaseException | None = None

    def keep(self, fault: BaseException) -> None:
        self._fault = self._fault or fault

    def raise_kept(self) -> None:
        if self._fault is not None:
            fault, self._fault = self._fault, None
            raise fault


def floats(values: Any, count: int) -> Any:
    """An array for the library; None is null."""
    if values is None:
        return None
    if len(values) != count:
        raise ValueError(f"expected {count} numbers, found {len(values)}")
    return (c_float * count)(*values)
