"""Rendering a world offline."""

from __future__ import annotations

from ctypes import c_float
from typing import TYPE_CHECKING, Any

from ._errors import Error
from ._library import library
from ._world import Closing, World, numpy_module

if TYPE_CHECKING:
    from ._world import Samples


class Renderer(Closing):
    """Renders a world offline, piece by piece: time stands still between two calls, so change the
    world there. It goes with its world. `rate` in Hz."""

    def __init__(self, world: World, rate: int = 44100) -> None:
        self.world = world
        self.backend = world.add_backend("loopback", rate=rate)
        super().__init__(self.backend._handle, "the renderer")
        if not self.backend.working:
            self.close()
            raise Error(
                "OpenAL gave no loopback device; check the installation of OpenAL Soft")

    def close(self) -> None:
        self.backend.close()

    @property
    def rate(self) -> int:
        """Sample rate in Hz."""
        return int(self._do(library.backend_rate))

    def render(self, seconds: float) -> Samples:
        """The next samples: float32 of shape (frames, 2), left and right; full scale is 1. Needs
        numpy."""
        numpy = numpy_module()
        out: Samples = numpy.empty((round(seconds * self.rate), 2), numpy.float32)
        self.render_into(out)
        return out

    def render_into(self, out: Any) -> None:
        """Fills a writable buffer of float32 with the next samples, left and right alternating,
        without a copy: an array of shape (frames, 2), or array.array("f")."""
        view = memoryview(out)
        if view.format != "f" or view.nbytes % 8 or not view.c_contiguous or view.readonly:
            raise ValueError(
                "expected a writable, contiguous buffer of float32 with two samples a frame, found "
                f'the format "{view.format}" with {view.nbytes} bytes')
        if view.nbytes:
            samples = (c_float * (view.nbytes // 4)).from_buffer(view)
            self._do(library.backend_render, samples, view.nbytes // 8)
