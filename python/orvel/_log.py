"""The library's log, passed to the logger "orvel"."""

from __future__ import annotations

import atexit
import enum
import logging
import re
import traceback

from ._library import LogCallback, library


class LogLevel(enum.IntEnum):
    """The levels of the library's log; each includes those before it."""

    LOG = 0
    FATAL = 1
    WARNING = 2
    NOTICE = 3
    INFO = 4
    DEBUG = 5


logger = logging.getLogger("orvel")

_LEVELS = {
    LogLevel.LOG: logging.INFO,
    LogLevel.FATAL: logging.ERROR,
    LogLevel.WARNING: logging.WARNING,
    LogLevel.NOTICE: logging.INFO,
    LogLevel.INFO: logging.INFO,
    LogLevel.DEBUG: logging.DEBUG,
}
_HEADER = re.compile(r"^[A-Z]+: Orvel: +")


def set_log_level(level: LogLevel) -> None:
    """Writes lines up to this level; NOTICE at first. The logger filters what is left."""
    library.log_set_level(level)


def log_level() -> LogLevel:
    """The level up to which the library writes lines."""
    return LogLevel(library.log_level())


def _on_line(level: int, text: bytes, user: object) -> None:
    # Called by any thread, in the middle of an operation: nothing may leave it.
    try:
        line = _HEADER.sub("", text.decode(errors="replace")).rstrip()
        logger.log(_LEVELS.get(LogLevel(level), logging.INFO), "%s", line)
    except Exception:  # as logging does with a handler that fails
        if logging.raiseExceptions:
            traceback.print_exc()


_callback = LogCallback(_on_line)
_none = LogCallback(0)
library.log_set_callback(_callback, None)
# Threads of the library may outlive the interpreter.
atexit.register(library.log_set_callback, _none, None)
