"""Cameras 0483:5750: two images from each frame, as numpy arrays, without a copy.

    import zrncamera

    with zrncamera.open() as camera:          # the first that is free; open("ZR4711") one of them
        camera.exposure_us = 2000
        for frame in camera.stream():
            print(frame.number, frame.missing, frame.a.mean(), frame.b.mean())

list() tells which cameras there are, watch() who comes and goes. Camera.grab(10) takes ten frames.
Recording and Recorder read and write recordings. Without a camera,

    zrncamera.virtual("type2", rate=60)

as the first call of a script runs it on a virtual one. All errors are ZrnError, with a name for
scripts and a hint for people.

What the driver notes goes to the logger "zrncamera" of Python's logging.

A process that uses a camera must not be forked: give multiprocessing the context "spawn", and open
the camera in one process.
"""

from __future__ import annotations

import builtins
from importlib.util import find_spec as _find_spec
from typing import Optional

if _find_spec("numpy") is None:
    raise ImportError("zrncamera needs numpy: pip install numpy, or apt install python3-numpy")

from . import _zrncamera
from ._camera import PROPERTIES, Camera, open
from ._errors import CameraBusy, CameraGone, GrabTimeout, ZrnError
from ._recording import Recorder, Recording
from ._stream import Stream
from ._virtual import VirtualBus, virtual
from ._watch import Watch
from ._zrncamera import CameraInfo, Change, Counters, Event, Frame, PropertyInfo
from ._zrncamera import __version__ as __version__

__all__ = [
    "Camera",
    "CameraBusy",
    "CameraGone",
    "CameraInfo",
    "Change",
    "Counters",
    "Event",
    "Frame",
    "GrabTimeout",
    "PROPERTIES",
    "PropertyInfo",
    "Recorder",
    "Recording",
    "Stream",
    "VirtualBus",
    "Watch",
    "ZrnError",
    "list",
    "open",
    "virtual",
    "watch",
]


def list() -> builtins.list[CameraInfo]:
    """The cameras on the bus, in the order of their ports, with who uses them. Opens none."""
    return _zrncamera.cameras()


def watch(timeout: Optional[float] = None) -> Watch:
    """Cameras that come, go, and change: `for change in watch(): print(change.kind, change.camera)`.

    Those that are there come first. `async for` waits for them in an event loop.

    timeout -- seconds without a change after which it ends; None: never
    """
    return Watch(timeout)
