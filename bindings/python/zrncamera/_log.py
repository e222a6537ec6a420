"""The driver's log."""

from __future__ import annotations

import logging
import os
import threading
from typing import Optional

from . import _zrncamera

logger = logging.getLogger("zrncamera")
logger.addHandler(logging.NullHandler())

_relaying: Optional[threading.Thread] = None
_starting = threading.Lock()


def start() -> None:
    """Begins to hand the driver's lines to the logger, unless that was done."""
    global _relaying
    with _starting:
        if _relaying is None:
            _relaying = threading.Thread(target=_relay, name="zrncamera-log", daemon=True)
            _relaying.start()


def end() -> None:
    """Waits until those that there are have been handed over."""
    if _relaying is not None:
        _zrncamera.end_log()
        _relaying.join()


def _forget() -> None:
    """In a forked child, which has the lines without the thread."""
    global _relaying, _starting
    _relaying = None
    _starting = threading.Lock()


os.register_at_fork(after_in_child=_forget)


def _relay() -> None:
    while lines := _zrncamera.next_log_lines():
        for level, text in lines:
            logger.log(level, "%s", text.rstrip())
