"""Streams: what becomes of frames that nobody takes, of cameras that go, of threads that wait."""

import gc
import select
import threading
import time

import pytest

import zrncamera
from zrncamera import Event, Frame


def wait_until(condition, seconds=20):
    end = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < end
        time.sleep(0.02)


def test_ends_with_its_loop(camera):
    for frame in camera.stream():
        break
    gc.collect()
    with camera.stream() as stream:  # a camera has one at a time
        next(stream)
        with pytest.raises(zrncamera.ZrnError):
            camera.stream()
    with pytest.raises(StopIteration):
        next(stream)
    assert stream.closed and stream.counters.frames > 0


def test_slow_consumer_of_all_frames_loses_the_oldest(camera):
    with camera.stream(capacity=5) as stream:
        wait_until(lambda: stream.counters.lost_queue >= 5)
        dropped = stream.counters.lost_queue
        first = next(stream)
        assert first.number >= dropped


def test_newest_frame_alone(camera):
    with camera.stream("newest") as stream:
        first = next(stream).number
        wait_until(lambda: stream.counters.frames >= 10)
        assert next(stream).number >= first + 8
        assert stream.counters.lost_queue >= 7


def test_blocking_queue_drops_nothing(camera):
    with camera.stream("block", capacity=2) as stream:
        wait_until(lambda: stream.counters.frames >= 3)
        time.sleep(0.2)
        frames = [next(stream) for _ in range(10)]
        assert stream.counters.lost_queue == 0
    assert [frame.missing for frame in frames[1:3]] == [0, 0]


def test_unknown_policy(camera):
    with pytest.raises(ValueError):
        camera.stream("some")


def test_timeout(camera, bus):
    with camera.stream() as stream:
        next(stream)
        bus.command("freeze")
        wait_until(lambda: stream.counters.timeouts > 0)
        while True:  # those that were under way
            begin = time.monotonic()
            try:
                stream.next(0.2)
            except zrncamera.GrabTimeout as error:
                assert error.name == "GrabTimeout" and error.code == 1034
                break
        assert 0.2 <= time.monotonic() - begin < 1


def test_unplugging_ends_a_stream(camera, bus):
    with camera.stream() as stream:
        next(stream)
        bus.unplug()
        with pytest.raises(zrncamera.CameraGone):
            for frame in stream:
                pass


def test_stream_is_kept_alive(camera, bus):
    camera.gain = 42
    kinds = []
    with camera.stream(keep_alive=True) as stream:
        next(stream)
        bus.unplug()
        for item in stream:
            if isinstance(item, Event):
                kinds.append(item.kind)
                if item.kind == "lost":
                    assert item.cause == "gone"
                    bus.plug()
            elif kinds[-1:] == ["back"]:
                break
    assert kinds == ["lost", "back"]
    assert item.gain == 42 and camera.gain == 42


def test_closing_wakes_who_waits(camera, bus):
    stream = camera.stream(timeout=60)
    seen = []
    thread = threading.Thread(target=lambda: seen.extend(stream))
    thread.start()
    wait_until(lambda: seen)
    bus.command("freeze")
    time.sleep(0.1)
    stream.close()
    thread.join(5)
    assert not thread.is_alive()


def test_closing_the_camera_ends_its_stream():
    camera = zrncamera.open()
    stream = camera.stream()
    frame = next(stream)
    camera.close()
    assert stream.closed and frame.a.any()


def test_callback(camera):
    frames = []
    stream = camera.stream()
    thread = stream.call(frames.append)
    wait_until(lambda: len(frames) >= 5)
    stream.close()
    thread.join(5)
    assert not thread.is_alive()
    assert all(isinstance(frame, Frame) for frame in frames)


def test_file_descriptor(camera):
    with camera.stream() as stream:
        for _ in range(5):
            assert select.select([stream], [], [], 5)[0]
            try:
                stream.next(0)
            except zrncamera.GrabTimeout:
                pass
        assert stream.counters.frames > 0


def test_two_consumers_share_the_frames(camera):
    numbers = []
    with camera.stream(timeout=5) as stream:
        consume = lambda: numbers.extend(next(stream).number for _ in range(10))
        threads = [threading.Thread(target=consume) for _ in range(2)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    assert len(numbers) == len(set(numbers)) == 20


def test_stream_that_is_left_running_does_not_hang_the_exit(run):
    script = """
import threading, zrncamera
camera = zrncamera.open()
stream = camera.stream()
stream.call(lambda frame: None)
next(stream)
threading.Thread(target=lambda: list(stream), daemon=True).start()
print("end")
"""
    assert run(script) == "end\n"
