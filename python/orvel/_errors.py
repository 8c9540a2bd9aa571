"""The exceptions of the package."""

from __future__ import annotations

from typing import NamedTuple


class Error(RuntimeError):
    """A call failed. The text is the library's: the cause, the subject and a remedy."""


class GoneError(Error):
    """An object was used that no longer exists."""


class Problem(NamedTuple):
    """A mistake in a file, or a warning about it."""

    file: str
    line: int
    """From 1; 0: concerns the whole file."""
    column: int
    """From 1, where the file is not valid JSON; otherwise 0."""
    field: str
    """Such as "emitters[0].gain"; may be empty."""
    text: str
    """The expected and the actual value."""

    def __str__(self) -> str:
        place = ":".join([self.file, *(str(n) for n in (self.line, self.column) if n)])
        return ": ".join(filter(None, (place, self.field, self.text)))


class FileError(Error):
    """A scene or a capture that cannot be played; `problems` has every mistake."""

    def __init__(self, text: str, problems: list[Problem]) -> None:
        super().__init__(text)
        self.problems = problems
