"""Ctrl-C, forked children and spawned ones."""

import multiprocessing
import os
import signal
import time

import pytest

import zrncamera

WAITING = """
import sys, time, zrncamera
with zrncamera.open() as camera, camera.stream(timeout=60) as stream:
    next(stream)
    {setup}
    zrncamera.VirtualBus().command("freeze")
    try:
        print("waiting", flush=True)
        {wait}
    except KeyboardInterrupt:
        print(time.monotonic(), flush=True)
    zrncamera.VirtualBus().command("clear_faults")
zrncamera.VirtualBus().command("thaw")
"""
WAITS = {
    "stream": "list(stream)",
    "grab": "camera.grab(100, timeout=60)",
    "open": "zrncamera.open(camera.serial, patience=60)",
    "watch": "list(zrncamera.watch())",
    "question": "camera.exposure_us",
    "setting": "camera.exposure_us = 777",
    "end": "[stream.next(0.2) for _ in range(100)]",
}
HANGING = 'zrncamera.VirtualBus().command("control_fault", action="ignore", count=-1)'
SETUPS = {"grab": "stream.close()", "question": HANGING, "setting": HANGING, "end": HANGING}


def delay_of_ctrl_c(start, script):
    process = start(script)
    assert process.stdout.readline() == "waiting\n"
    time.sleep(0.5)
    sent = time.monotonic()
    process.send_signal(signal.SIGINT)
    line = process.stdout.readline()
    assert line, f"it ended with {process.wait(20)}"
    delay = float(line) - sent
    assert process.wait(20) == 0
    return delay


@pytest.mark.parametrize("wait", WAITS)
def test_ctrl_c_ends_a_wait(start, bus, wait):
    """Within 100 ms, once in ten times: a busy machine may take longer to wake a process."""
    setup = SETUPS.get(wait, "")
    script = WAITING.format(setup=setup, wait=WAITS[wait])
    assert any(delay_of_ctrl_c(start, script) < 0.1 for _ in range(10))


def in_child(work):
    """What a forked child's work returns or raises, as text."""
    reader, writer = os.pipe()
    child = os.fork()
    if child == 0:
        try:
            text = str(work())
        except BaseException as error:
            text = getattr(error, "name", repr(error))
        os.write(writer, text.encode())
        os._exit(0)
    os.close(writer)
    end = time.monotonic() + 20
    while os.waitpid(child, os.WNOHANG) == (0, 0):
        if time.monotonic() > end:
            os.kill(child, signal.SIGKILL)
            os.waitpid(child, 0)
            pytest.fail("the child hangs")
        time.sleep(0.01)
    with os.fdopen(reader) as pipe:
        return pipe.read()


def test_forked_child_gets_an_error(camera):
    with camera.stream() as stream:
        frame = next(stream)
        total = int(frame.a.sum())
        for work in (
            lambda: next(stream),
            lambda: stream.close(),
            lambda: stream.counters,
            lambda: camera.gain,
            lambda: camera.close(),
            lambda: camera.grab(),
            lambda: zrncamera.open(),
        ):
            assert in_child(work) == "ForkedProcess"
        assert in_child(lambda: int(frame.a.sum())) == str(total)
        assert in_child(lambda: len(zrncamera.list())) == "1"
        next(stream)


def test_forked_child_ends_what_it_inherited(camera):
    things = {"stream": camera.stream(), "camera": camera}
    things["frame"] = next(things["stream"])

    def drop():
        things.clear()
        return "dropped"

    assert in_child(drop) == "dropped"
    assert next(things["stream"]).a.any()


def test_forked_child_may_exit_as_it_likes(run):
    script = """
import os, sys, zrncamera
camera = zrncamera.open()
stream = camera.stream(timeout=20)
next(stream)
child = os.fork()
if child == 0:
    sys.exit(7)
assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 7
next(stream)
print("goes on")
"""
    assert run(script) == "goes on\n"


def test_forked_child_that_had_no_driver_before(run):
    script = """
import os, zrncamera
child = os.fork()
if child == 0:
    with zrncamera.open() as camera:
        camera.grab(2, timeout=20)
    os._exit(0)
print(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
"""
    assert run(script) == "0\n"


def grab_sum(image):
    """What a spawned child does: its parent's image, and a camera of its own."""
    with zrncamera.open() as camera:
        return int(image.sum()), len(camera.grab(2, timeout=20))


def test_spawned_child_has_cameras_of_its_own():
    with zrncamera.open() as camera:
        image = camera.grab()[0].a
    with multiprocessing.get_context("spawn").Pool(1) as pool:
        assert pool.apply_async(grab_sum, [image]).get(60) == (int(image.sum()), 2)


def test_forked_pool_says_what_is_wrong():
    with zrncamera.open():
        with multiprocessing.get_context("fork").Pool(1) as pool:
            with pytest.raises(zrncamera.ZrnError, match="spawn"):
                pool.apply_async(zrncamera.open).get(60)
