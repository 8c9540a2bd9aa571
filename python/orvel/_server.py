"""Sound servers."""

from __future__ import annotations

import os
from collections.abc import Callable, Iterable
from ctypes import c_int, c_ushort
from typing import Any, NamedTuple, Optional, Union

from ._library import Object, Relay, ResetCallback, library
from ._world import Path, World


class Multicast(NamedTuple):
    """How clients find a server: the group's address, its UDP port, and the TTL of its datagrams."""

    group: str = "239.255.77.90"
    port: int = 33780
    ttl: int = 1


class Server(World):
    """A sound server: a world that clients drive over the network. It has no thread of its own:
    call poll() from your loop. Anyone who can reach it can drive it, unless it has keys.

    `port` is a TCP port, 0: chosen by the system; `address` is an IPv4 address of this machine,
    empty: all.
    """

    def __init__(self, address: str = "", port: int = 0) -> None:
        self._server = Object(library.server_create_at(address.encode(), port), "the server")
        Object.__init__(self, self._server._do(library.server_world), "the server")
        self._relay = Relay()
        self._on_reset: Optional[Callable[[], object]] = None
        self._callback = ResetCallback(0)

    def close(self) -> None:
        if self.alive:
            self._server._do(library.server_destroy)

    @property
    def id(self) -> int:
        """A number that identifies the server to users. A text is the number at its start, or is
        hashed to one."""
        return int(self._server._do(library.server_id))

    @id.setter
    def id(self, id: Union[int, str]) -> None:
        self._server._do(library.server_set_id, str(id).encode())

    @property
    def multicast(self) -> Multicast:
        """The search. Set it before the first poll."""
        port, ttl = c_ushort(), c_int()
        group = self._server._do(library.server_multicast, port, ttl)
        return Multicast(group, port.value, ttl.value)

    @multicast.setter
    def multicast(self, multicast: Multicast) -> None:
        group, port, ttl = multicast
        self._server._do(library.server_set_multicast, group.encode(), port, ttl)

    @property
    def interfaces(self) -> list[str]:
        """The addresses or names of the interfaces to serve on; empty: all. Set it before the first
        poll."""
        return list(filter(None, self._server._do(library.server_interfaces).split(",")))

    @interfaces.setter
    def interfaces(self, interfaces: Iterable[str]) -> None:
        self._server._do(library.server_set_interfaces, ",".join(interfaces).encode())

    def set_keys(self, file: Path) -> None:
        """Lets only clients with a key of this file (see Keys) connect, and only those with the
        right "drive" change the scene. Call it before the first poll. If it fails, no one can
        connect."""
        self._server._do(library.server_set_keys, os.fsencode(file))

    @property
    def on_reset(self) -> Optional[Callable[[], object]]:
        """Called inside poll() when a client has reset the world, which destroys all its sources
        and emitters: create the sources that clients play here again, under their ids. It cannot
        close the server. An exception of it leaves poll()."""
        return self._on_reset

    @on_reset.setter
    def on_reset(self, function: Optional[Callable[[], object]]) -> None:
        def reset(server: int, user: Any) -> None:
            try:
                if function is not None:
                    function()
            except BaseException as fault:
                self._relay.keep(fault)

        callback = ResetCallback(reset) if function is not None else ResetCallback(0)
        self._server._do(library.server_set_reset_callback, callback, None)
        self._on_reset, self._callback = function, callback

    @property
    def port(self) -> int:
        """The TCP port that it listens on."""
        return int(self._server._do(library.server_port))

    @property
    def clients(self) -> int:
        """Number of connected clients."""
        return int(self._server._do(library.server_clients))

    def poll(self, seconds: float = 0.0) -> int:
        """Accepts clients, applies received events and sends queued data; first waits up to
        `seconds` for data. Returns the number of events. Call it at least every few seconds."""
        count = int(self._server._do(library.server_poll, seconds))
        self._relay.raise_kept()
        return count
