"""Waiting in an event loop."""

from __future__ import annotations

import asyncio
import os


async def readable(file: int, end: float) -> None:
    """Waits until a file descriptor can be read, or the running loop's clock shows `end`."""
    loop = asyncio.get_running_loop()
    file = os.dup(file)  # a loop has one reader for each, and several tasks may wait
    ready = loop.create_future()

    def wake() -> None:
        if not ready.done():
            ready.set_result(None)

    timer = loop.call_at(end, wake)
    loop.add_reader(file, wake)
    try:
        await ready
    finally:
        loop.remove_reader(file)
        os.close(file)
        timer.cancel()
