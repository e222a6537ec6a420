"""Cameras."""

from __future__ import annotations

import atexit
import difflib
import itertools
import os
import weakref
from collections.abc import Mapping
from pathlib import Path
from types import TracebackType
from typing import (
    TYPE_CHECKING,
    Any,
    Generic,
    Literal,
    Optional,
    TypeVar,
    Union,
    cast,
    overload,
)

from . import _checks, _log, _zrncamera
from ._errors import ZrnError
from ._stream import Policy, Stream
from ._zrncamera import Event, Frame, PropertyInfo

PROPERTIES: Mapping[str, PropertyInfo] = {info.key: info for info in _zrncamera.properties}
"""What is known about each of the driver's properties, by its key."""

_T = TypeVar("_T")


class _Property(Generic[_T]):
    """An attribute that is a property of the driver."""

    def __init__(self, key: str) -> None:
        self.key = key
        info = PROPERTIES[key]
        limits = f", {info.range[0]} to {info.range[1]}" if info.range else ""
        unit = f" {info.unit}" if info.unit else ""
        access = "" if info.writable else ", read-only"
        self.__doc__ = f"{info.tip} ({key}, {info.type}{limits}{unit}{access})."

    @overload
    def __get__(self, camera: None, owner: type) -> _Property[_T]: ...

    @overload
    def __get__(self, camera: Camera, owner: type) -> _T: ...

    def __get__(self, camera: Optional[Camera], owner: type) -> Union[_Property[_T], _T]:
        return self if camera is None else cast(_T, camera.get(self.key))

    def __set__(self, camera: Camera, value: _T) -> None:
        if not PROPERTIES[self.key].writable:
            raise AttributeError(f"{self.key} is read-only")
        camera.set(self.key, value)


class Camera:
    """A connected camera, made by open(). Close it, or use it in a `with` block.

    What is set on it is set again when a stream that is kept alive opens the camera anew. Any thread
    may call any method. The driver's other properties are attributes too, b_gain to sharp below;
    PROPERTIES tells their types, ranges and units.

    A value that a property cannot have is a ValueError that names its range, and a name that no
    setting has an AttributeError. Each operation raises ZrnError with the driver's answer when it
    was refused, and CameraGone when the camera does not answer any more.
    """

    def __init__(self, camera: _zrncamera.Camera) -> None:
        self._camera = camera
        self._serial = camera.serial
        self._streams: weakref.WeakSet[Stream[Any]] = weakref.WeakSet()
        _open_cameras.add(self)

    def close(self) -> None:
        """Ends its streams, and lets others have it. Frames stay valid."""
        for stream in list(self._streams):
            stream.close()
        self._camera.close()

    @property
    def serial(self) -> str:
        """As "ZR4711"."""
        return self._camera.serial

    @property
    def port(self) -> str:
        """Place of its socket when it was opened, as "1-2.3"."""
        return self._camera.port

    @property
    def width(self) -> int:
        """Pixels in a row of each image."""
        return self._camera.width

    @property
    def height(self) -> int:
        """Rows of each image."""
        return self._camera.height

    @property
    def exposure_us(self) -> int:
        """Exposure in microseconds; what is set is rounded to whole ones."""
        return self._camera.exposure

    @exposure_us.setter
    def exposure_us(self, exposure: float) -> None:
        self._camera.exposure = _checks.askable(
            "exposure_us",
            _checks.microseconds("exposure_us", exposure),
            lambda: self.exposure_range_us,
            " us",
        )

    @property
    def exposure_range_us(self) -> tuple[int, int]:
        """Shortest and longest exposure in microseconds."""
        return self._camera.exposure_range

    @property
    def gain(self) -> int:
        """Gain."""
        return self._camera.gain

    @gain.setter
    def gain(self, gain: int) -> None:
        self._camera.gain = _checks.askable(
            "gain", _checks.whole("gain", gain), lambda: self.gain_range
        )

    @property
    def gain_range(self) -> tuple[int, int]:
        """Smallest and largest gain."""
        return self._camera.gain_range

    @property
    def order(self) -> Literal["oldest", "newest"]:
        """Which of the frames that the driver keeps a grab takes."""
        return self._camera.order

    @order.setter
    def order(self, order: Literal["oldest", "newest"]) -> None:
        _checks.one_of("order", order, ("oldest", "newest"))
        self._camera.order = order

    b_gain = _Property[int]("BGain")
    cache_frame_count = _Property[int]("CacheFrameCount")
    capture_period = _Property[int]("CapturePeriod")
    enable_check_exposure_time = _Property[bool]("EnableCheckExposureTime")
    enable_check_gain = _Property[bool]("EnableCheckGain")
    frame_rate = _Property[float]("FrameRate")
    gamma = _Property[int]("Gamma")
    gb_gain = _Property[int]("GBGain")
    gr_gain = _Property[int]("GRGain")
    hue = _Property[int]("Hue")
    max_grab_wait_time = _Property[int]("MaxGrabWaitTime")
    r_gain = _Property[int]("RGain")
    resolution_index = _Property[int]("ResolutionIndex")
    sensor_count = _Property[int]("SensorCount")
    sharp = _Property[int]("Sharp")

    def get(self, key: str) -> object:
        """The value of a property, by its key: int, float, bool, str, or a dict for a record."""
        return self._camera.property(key)

    def set(self, key: str, value: object) -> None:
        """Sets a property, by its key.

        ValueError: it is out of its range. TypeError: it is of another type.
        """
        info = PROPERTIES.get(key)
        self._camera.set_property(key, value if info is None else _checks.fitting(info, value))

    def run(self, command: str) -> None:
        """Runs a command of the driver: "ClearState" resets the camera."""
        self._camera.run(command)

    @property
    def online(self) -> bool:
        """Whether it answers."""
        return self._camera.online()

    @overload
    def stream(
        self,
        policy: Policy = "all",
        *,
        capacity: int = 16,
        keep_alive: Literal[False] = False,
        timeout: Optional[float] = None,
    ) -> Stream[Frame]: ...

    @overload
    def stream(
        self,
        policy: Policy = "all",
        *,
        capacity: int = 16,
        keep_alive: bool,
        timeout: Optional[float] = None,
    ) -> Stream[Union[Frame, Event]]: ...

    def stream(
        self,
        policy: Policy = "all",
        *,
        capacity: int = 16,
        keep_alive: bool = False,
        timeout: Optional[float] = None,
    ) -> Stream[Any]:
        """Starts the stream, one at a time.

        policy     -- what becomes of frames that are not taken in time: "newest" keeps the last one
                      alone, for looking; "all" drops the oldest of `capacity` frames; "block"
                      drops none while the driver's own ring has room, for recording
        keep_alive -- the stream goes on by itself when frames stay away or the camera is plugged in
                      again, and tells so: it yields Event objects among the frames
        timeout    -- seconds to wait for a frame; None: a little longer than the driver waits and
                      the exposure lasts, and for ever when it is kept alive

        CameraGone: the camera does not answer; also with keep_alive, which begins when it does.
        """
        for ended in list(self._streams):
            ended._settle()
        stream: Stream[Any] = Stream(self._camera, policy, capacity, keep_alive, timeout)
        self._streams.add(stream)
        return stream

    def grab(self, count: int = 1, timeout: Optional[float] = None) -> list[Frame]:
        """The next frames, from a stream of their own, of which none is dropped for another one.

        timeout -- seconds to wait for each, as for stream()

        GrabTimeout, CameraGone: as for Stream.next().
        """
        count = _checks.count("count", count)
        if count == 0:
            return []
        with self.stream("block", capacity=max(count, 16), timeout=timeout) as stream:
            return list(itertools.islice(stream, count))

    def __repr__(self) -> str:
        try:
            return f"<Camera {self._serial} at port {self.port}, {self.width}x{self.height}>"
        except ZrnError as error:
            return f"<Camera {self._serial}: {error.message}>"

    if not TYPE_CHECKING:  # what a checker of types knows by itself

        def __setattr__(self, name, value):
            if not name.startswith("_") and not hasattr(getattr(Camera, name, None), "__set__"):
                settings = [key for key, held in vars(Camera).items() if hasattr(held, "__set__")]
                near = difflib.get_close_matches(name, settings, 1)
                meant = f"; did you mean {near[0]}?" if near else ""
                raise AttributeError(f"a camera has no setting {name}{meant}")
            super().__setattr__(name, value)

    def __enter__(self) -> Camera:
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        self.close()


_open_cameras: weakref.WeakSet[Camera] = weakref.WeakSet()


def _close_all() -> None:
    for camera in list(_open_cameras):
        camera.close()
    _zrncamera.await_left_behind()
    _log.end()


# Threads that wait in a stream would otherwise meet an interpreter that is being taken down.
atexit.register(_close_all)
os.register_at_fork(after_in_child=_open_cameras.clear)


def open(
    serial: str = "",
    *,
    port: str = "",
    index: int = -1,
    patience: float = 3.0,
    driver: Union[str, Path, None] = None,
) -> Camera:
    """Opens a camera; without arguments, the first that is free. Other cameras are left alone.

    serial   -- as "ZR4711" or "4711"
    port     -- as list() tells it; beside a serial, where to look first
    index    -- place in list(), from 0
    patience -- seconds to wait while other programs are in the way, who may only be looking
    driver   -- file of the driver; None: the one that ZRNCAM_PLUGIN names, that lies in this
                package, or that is installed

    CameraBusy: another program has it, or this one has. ZrnError: there is none, or it cannot be
    opened.
    """
    patience = _checks.seconds("patience", patience)
    index = _checks.count("index", index, -1)
    _log.start()
    return Camera(_zrncamera.open(serial, port, index, patience, str(driver or _own_driver())))


def _own_driver() -> str:
    own = Path(__file__).with_name("libzrncamera.so")
    return str(own) if own.exists() and "ZRNCAM_PLUGIN" not in os.environ else ""
