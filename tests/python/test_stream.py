"""Streams: what becomes of frames that nobody takes, of cameras that go, of threads that wait."""

import gc
import select
import threading
import time

import pytest
from conftest import wait_until

import zrncamera
from zrncamera import Event, Frame


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
        assert first.dropped >= dropped and first.missing >= first.dropped


def test_every_missing_frame_has_a_place(camera, bus):
    with camera.stream("block") as stream:
        bus.command("frame_number", number=next(stream).number + 100)
        wait_until(lambda: next(stream) and stream.counters.missing >= 10)
        counters = stream.counters
        assert counters.lost_camera >= 10
        assert counters.missing == counters.lost_camera + counters.lost_library + counters.lost_ring


def test_newest_frame_alone(camera):
    with camera.stream("newest") as stream:
        first = next(stream).number
        seen = stream.counters.frames
        wait_until(lambda: stream.counters.frames >= seen + 10)
        assert next(stream).number >= first + 8
        assert stream.counters.lost_queue >= 7


def test_missing_counts_what_the_queue_dropped(camera):
    with camera.stream(capacity=2) as stream:
        frames = [next(stream)]
        for _ in range(3):
            seen = stream.counters.lost_queue
            wait_until(lambda: stream.counters.lost_queue > seen)
            frames.append(next(stream))
            frames.append(next(stream))
    for before, after in zip(frames, frames[1:]):
        assert after.number == before.number + after.missing + 1
    assert sum(frame.dropped for frame in frames) >= 3


def test_grab_drops_nothing(camera, monkeypatch):
    """Also where whoever takes the frames is slow."""
    take = zrncamera.Stream.__next__
    dropped = []

    def take_slowly(stream):
        frame = take(stream)
        time.sleep(1)
        dropped.append(stream.counters.lost_queue)
        return frame

    monkeypatch.setattr(zrncamera.Stream, "__next__", take_slowly)
    frames = camera.grab(3)
    assert dropped == [0, 0, 0] and [frame.dropped for frame in frames] == [0, 0, 0]


def test_blocking_queue_drops_nothing(camera):
    with camera.stream("block", capacity=2) as stream:
        wait_until(lambda: stream.counters.frames >= 3)
        time.sleep(0.2)
        frames = [next(stream) for _ in range(10)]
        assert stream.counters.lost_queue == 0
    for before, after in zip(frames, frames[1:]):  # a busy machine may overrun the driver's ring
        assert after.number == before.number + after.missing + 1


def test_unknown_policy(camera):
    with pytest.raises(ValueError, match="newest"):
        camera.stream("some")


def test_timeout(camera, bus):
    with camera.stream() as stream:
        next(stream)
        bus.command("freeze")
        wait_until(lambda: stream.counters.timeouts > 0)
        with pytest.raises(zrncamera.GrabTimeout) as caught:
            while True:  # those that were under way
                begin = time.monotonic()
                stream.next(0.2)
        assert time.monotonic() - begin >= 0.2
        assert caught.value.name == "GrabTimeout" and caught.value.code == 1034


def test_unplugging_ends_a_stream(camera, bus):
    with camera.stream(timeout=2) as stream:
        stream.next(20)
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
                if item.kind == "refused":
                    continue  # for a moment, by a bus that is still at work
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


def test_next_stream_waits_for_the_end_of_the_last(camera):
    """Which another thread is making."""
    for _ in range(10):
        stream = camera.stream()
        ending = threading.Thread(target=stream.close)
        next(stream)
        ending.start()
        list(stream)  # until it ends
        camera.stream().close()
        ending.join()


def test_next_stream_waits_for_the_end_by_a_callback(camera):
    for _ in range(10):
        stream = camera.stream()
        thread = stream.call(lambda frame: stream.close())
        wait_until(lambda: stream.closed)
        camera.stream().close()
        thread.join()


def test_next_stream_waits_for_the_end_by_who_forgets_it(camera):
    streams = []
    for _ in range(10):
        streams.append(camera.stream())
        ending = threading.Thread(target=streams.clear)
        next(streams[0])
        ending.start()
        wait_until(lambda: not streams)
        camera.stream().close()
        ending.join()


@pytest.mark.parametrize("keep_alive", [False, True])
def test_closing_the_camera_ends_a_busy_callback(monkeypatch, keep_alive):
    raised = []
    monkeypatch.setattr(threading, "excepthook", raised.append)
    called, closed = threading.Event(), threading.Event()

    def use(item):
        called.set()
        assert closed.wait(60)

    with zrncamera.open() as camera:
        stream = camera.stream(keep_alive=keep_alive)
        thread = stream.call(use)
        assert called.wait(60)
    closed.set()
    thread.join(60)
    assert not thread.is_alive() and raised == []
    assert stream.next() is None and stream.next(1) is None
    with pytest.raises(StopIteration):
        next(stream)


def test_wait_in_vain_for_a_stream_that_ends_meanwhile(camera, bus, monkeypatch):
    """Between the wait and the question whether the camera is there."""
    stream = camera.stream()
    fail = stream._failure

    def close_and_fail(seconds):
        camera.close()
        return fail(seconds)

    monkeypatch.setattr(stream, "_failure", close_and_fail)
    bus.command("freeze")
    wait_until(lambda: stream.counters.timeouts > 0)
    while stream.next(0.3):  # those that were under way
        pass
    assert stream.closed


def test_file_descriptor(camera):
    with camera.stream() as stream:
        for _ in range(5):
            assert select.select([stream], [], [], 20)[0]
            try:
                stream.next(0)
            except zrncamera.GrabTimeout:
                pass
        assert stream.counters.frames > 0


def test_two_consumers_share_the_frames(camera):
    numbers = []
    with camera.stream(timeout=20) as stream:
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
stream = camera.stream(timeout=20)
stream.call(lambda frame: None)
next(stream)
threading.Thread(target=lambda: list(stream), daemon=True).start()
print("end")
"""
    assert run(script) == "end\n"


def test_threads_that_wait_at_the_end_do_not_end_the_process(run):
    """They want the interpreter back when it is gone already."""
    script = """
import threading, time, zrncamera

class Late:
    def __del__(self, sleep=time.sleep):
        sleep(0.3)  # gives the interpreter away while it is taken down

late = Late()
begun = threading.Semaphore(0)

def wait():
    watch = zrncamera.watch()
    next(watch)
    begun.release()
    list(watch)

for _ in range(4):
    threading.Thread(target=wait, daemon=True).start()
for _ in range(4):
    begun.acquire()
print("end")
"""
    assert run(script) == "end\n"
