"""Lines for who waits while something is measured."""

import contextlib
import sys
import threading
import time

PAUSE = 4


@contextlib.contextmanager
def telling(what):
    """Says what is done, at once and every few seconds until it is over."""
    since = time.monotonic()
    over = threading.Event()

    def tell():
        while not over.wait(PAUSE):
            print(f"... {what}, {time.monotonic() - since:.0f} s", file=sys.stderr, flush=True)

    print(what, file=sys.stderr, flush=True)
    teller = threading.Thread(target=tell, daemon=True)
    teller.start()
    try:
        yield
    finally:
        over.set()
        teller.join()
