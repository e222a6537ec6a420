"""Streams."""

from __future__ import annotations

import asyncio
import threading
from collections.abc import AsyncIterator, Callable, Iterator
from types import TracebackType
from typing import Literal, Optional, TypeVar, Union, cast, get_args

from . import _checks, _zrncamera
from ._errors import CameraGone, GrabTimeout, ZrnError
from ._waiting import readable
from ._zrncamera import Counters, Event, Frame

Policy = Literal["newest", "all", "block"]
Item = TypeVar("Item", bound=Union[Frame, Event], covariant=True)

_SLACK = 0.5  # seconds, beyond what the driver waits for a frame
_GLANCE = 0.2  # seconds; after a shorter wait in vain the camera is not asked whether it is there


class Stream(Iterator[Item], AsyncIterator[Item]):
    """A running stream, made by Camera.stream(): an iterator over its frames.

    It ends with close(), with the `with` block, or when nobody refers to it any more. Frames stay
    valid. Any thread may call any method. Threads and tasks that wait for one stream share its
    frames: each goes to one of them.
    """

    def __init__(
        self,
        camera: _zrncamera.Camera,
        policy: Policy,
        capacity: int,
        keep_alive: bool,
        timeout: Optional[float],
    ) -> None:
        _checks.one_of("policy", policy, get_args(Policy))
        self._policy = policy
        self._keep_alive = bool(keep_alive)
        self._closing: Optional[threading.Thread] = None
        self._serial = camera.serial
        longest = _checks.optional_seconds("timeout", timeout)
        if longest is None and self._keep_alive:
            longest = _checks.EVER
        driver_wait = float(camera.property("MaxGrabWaitTime")) / 1000.0  # type: ignore[arg-type]
        self._stream = _zrncamera.start_stream(
            camera,
            policy,
            _checks.count("capacity", capacity, 1),
            self._keep_alive,
            longest,
            driver_wait + _SLACK,
        )
        self._take = cast(Callable[[], Optional[Item]], self._stream.next)

    def next(self, timeout: Optional[float] = None) -> Optional[Item]:
        """The next frame, or event of a stream that is kept alive; None when the stream has ended.

        timeout -- seconds to wait; None: as given to Camera.stream()

        GrabTimeout: there was none for so long. CameraGone: the camera does not answer any more,
        for which it is asked after a wait of 0.2 s or longer.
        """
        seconds = _checks.optional_seconds("timeout", timeout)
        item = cast(Optional[Item], self._stream.next(seconds))
        if item is None:
            self._tell_failure(seconds)
        return item

    def close(self) -> None:
        """Ends the stream. Whoever waits for frames goes on."""
        self._stream.close()

    @property
    def closed(self) -> bool:
        """Whether it has ended."""
        return self._stream.stopped

    @property
    def counters(self) -> Counters:
        """What it has seen up to now, losses by their place among it."""
        return self._stream.counters

    def fileno(self) -> int:
        """A file descriptor that can be read when a frame or an event may be there, for select()
        and event loops. next(0) takes it, or raises GrabTimeout after a false alarm.
        """
        return self._stream.fileno()

    def call(self, function: Callable[[Item], object]) -> threading.Thread:
        """Calls a function with each frame or event, on a thread of its own, until the stream ends.

        What the function raises ends the thread, by way of threading.excepthook.
        """
        if not callable(function):
            raise TypeError(f"{function!r} cannot be called")
        thread = threading.Thread(target=self._call, args=(function,), name="zrncamera", daemon=True)
        thread.start()
        return thread

    def _call(self, function: Callable[[Item], object]) -> None:
        for item in self:
            function(item)

    def _tell_failure(self, seconds: Optional[float]) -> None:
        """Raises what a wait was in vain for, unless the stream has ended."""
        if not self._stream.stopped:
            failure = self._failure(self._stream.patience if seconds is None else seconds)
            if not self._stream.stopped:  # meanwhile
                raise failure

    def _failure(self, seconds: float) -> Exception:
        if seconds >= _GLANCE and not self._keep_alive and self._stream.camera_gone():
            return CameraGone()
        return GrabTimeout(
            f"no frame came within {seconds:.3g} s",
            code=1034,
            name="GrabTimeout",
            hint="wait for longer than the exposure",
        )

    def __repr__(self) -> str:
        try:
            counters = self.counters
            state = "ended" if self.closed else "running"
        except ZrnError as error:
            return f"<Stream of {self._serial}: {error.message}>"
        seen = f"{counters.frames} frames, {counters.missing} missing, {counters.lost_queue} dropped"
        return f'<Stream of {self._serial}, "{self._policy}", {state}: {seen}>'

    def __iter__(self) -> Stream[Item]:
        return self

    def __next__(self) -> Item:
        item = self._take()
        if item is None:
            self._tell_failure(None)
            raise StopIteration
        return item

    def __aiter__(self) -> Stream[Item]:
        return self

    async def __anext__(self) -> Item:
        seconds = self._stream.patience
        loop = asyncio.get_running_loop()
        end = loop.time() + seconds
        while True:
            item = cast(Optional[Item], self._stream.next(0))
            if item is not None:
                return item
            if self._stream.stopped:
                raise StopAsyncIteration
            if loop.time() >= end:
                failure = await loop.run_in_executor(None, self._failure, seconds)
                if self._stream.stopped:  # meanwhile
                    raise StopAsyncIteration
                raise failure
            await readable(self.fileno(), end)

    def __enter__(self) -> Stream[Item]:
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        if kind is not None and issubclass(kind, KeyboardInterrupt):
            # Who pressed Ctrl-C does not wait for the driver.
            self._closing = threading.Thread(target=self.close)
            self._closing.start()
        else:
            self.close()

    def _settle(self) -> None:
        """Waits until the end that Ctrl-C asked for has begun, and is over."""
        if self._closing is not None:
            self._closing.join()
