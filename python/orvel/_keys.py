"""Key files of sound servers."""

from __future__ import annotations

import os
from collections.abc import Iterator
from typing import NamedTuple

from ._library import library
from ._world import Path


class Key(NamedTuple):
    """A key without its secret."""

    right: str
    """"drive": changes the scene; "watch": is informed who drives."""
    id: str
    """Visible on the network."""
    name: str
    """Shown in the log and the monitor."""


class Keys:
    """A key file: who may connect to a server, and with which right, for Server.set_keys() and the
    parameter `key` of the back end "client". It stands for its path. Only its owner can read it.

    It is read and written by each call, so several programs can change it. A running server takes
    the change within a second.
    """

    def __init__(self, path: Path) -> None:
        """An existing file."""
        self._path = os.fspath(path)
        self._list()

    @classmethod
    def new(cls, path: Path, name: str = "owner") -> Keys:
        """Makes a file, which must not exist, with a first key, which may drive."""
        library.keys_new(os.fsencode(path), name.encode())
        return cls(path)

    def __fspath__(self) -> str:
        return self._path

    def grant(self, name: str, output: Path, right: str = "drive") -> Keys:
        """Adds a key with the right "drive" or "watch". Returns the file for its machine, `output`,
        which must not exist and has this key alone."""
        library.keys_grant(os.fsencode(self), name.encode(), right.encode(), os.fsencode(output))
        return Keys(output)

    def revoke(self, name: str) -> None:
        """Removes a key. Running servers disconnect it."""
        library.keys_revoke(os.fsencode(self), name.encode())

    def _list(self) -> list[Key]:
        return [Key(*words) for words in library.keys_list(os.fsencode(self))]

    def __iter__(self) -> Iterator[Key]:
        return iter(self._list())

    def __len__(self) -> int:
        return len(self._list())

    def __str__(self) -> str:
        return self._path

    def __repr__(self) -> str:
        return f"<orvel: the key file {self._path}>"
