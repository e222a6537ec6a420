"""Who is on the bus, and who has it."""

import asyncio
import os
import threading

import pytest

import zrncamera

HOLDER = """
import zrncamera
with zrncamera.open(index=0) as camera:
    print(camera.serial, flush=True)
    input()
"""


def test_list():
    first, second = zrncamera.list()
    assert first.port != second.port
    assert first.accessible and first.node.startswith("/dev/bus/usb/")
    assert first.use == "free" and first.holders == [] and first.port in repr(first)


def test_own_camera_is_held():
    with zrncamera.open(index=1) as camera:
        mine = zrncamera.list()[1]
        assert mine.serial == camera.serial and mine.port == camera.port
        assert mine.use == "held"
        assert os.getpid() in [pid for pid, program in mine.holders]


def test_choice():
    with zrncamera.open(index=1) as camera:
        serial, port = camera.serial, camera.port
    with zrncamera.open(serial) as camera:
        assert camera.port == port
    with zrncamera.open(serial[2:]) as camera:
        assert camera.serial == serial
    with zrncamera.open(port=port) as camera:
        assert camera.serial == serial


def test_busy_camera_names_its_holder(start):
    holder = start(HOLDER)
    serial = holder.stdout.readline().strip()
    with pytest.raises(zrncamera.CameraBusy) as caught:
        zrncamera.open(serial, patience=0)
    assert holder.pid in [pid for pid, program in caught.value.holders]
    assert f"pid {holder.pid}" in caught.value.holder
    with zrncamera.open() as other:
        assert other.serial != serial


def next_change(watch, kind):
    return next(change.camera.port for change in watch if change.kind == kind)


def test_watch(bus):
    watch = zrncamera.watch(timeout=10)
    ports = [next_change(watch, "arrived") for _ in range(2)]
    for camera in range(2):
        threading.Timer(0.3, bus.unplug, [camera]).start()
        assert next_change(watch, "left") == ports[camera]
        bus.plug(camera)
        assert next_change(watch, "arrived") == ports[camera]


def test_watch_in_an_event_loop(bus):
    async def main():
        kinds = []
        async for change in zrncamera.watch(timeout=3):
            kinds.append(change.kind)
            if kinds == ["arrived", "arrived"]:
                bus.unplug()
        return kinds

    assert asyncio.run(main()) == ["arrived", "arrived", "left"]


def test_watch_ends(bus):
    assert len(list(zrncamera.watch(timeout=2))) == 2
