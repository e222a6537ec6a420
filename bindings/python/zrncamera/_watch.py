"""Watching the bus."""

from __future__ import annotations

import asyncio
from collections.abc import AsyncIterator, Iterator
from typing import Optional

from . import _checks, _zrncamera
from ._waiting import readable
from ._zrncamera import Change


class Watch(Iterator[Change], AsyncIterator[Change]):
    """A watch on the bus, made by watch(). No camera is opened for it."""

    def __init__(self, timeout: Optional[float]) -> None:
        self._seconds = _checks.EVER if timeout is None else _checks.seconds("timeout", timeout)
        self._watch = _zrncamera.watch_bus()

    def next(self, timeout: Optional[float] = None) -> Optional[Change]:
        """The next change; None when there was none for so many seconds, or, without `timeout`, for
        those given to watch().
        """
        seconds = self._seconds if timeout is None else _checks.seconds("timeout", timeout)
        return self._watch.next(seconds)

    def fileno(self) -> int:
        """A file descriptor that can be read when next(0) may have a change."""
        return self._watch.fileno()

    def __iter__(self) -> Watch:
        return self

    def __next__(self) -> Change:
        change = self.next()
        if change is None:
            raise StopIteration
        return change

    def __aiter__(self) -> Watch:
        return self

    async def __anext__(self) -> Change:
        loop = asyncio.get_running_loop()
        end = loop.time() + self._seconds
        while True:
            change = self.next(0)
            if change is not None:
                return change
            if loop.time() >= end:
                raise StopAsyncIteration
            await readable(self.fileno(), end)
