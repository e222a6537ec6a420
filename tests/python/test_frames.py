"""Frames are the driver's own memory, for as long as anybody looks at them."""

import copy
import gc
import pickle

import numpy as np
import pytest

import zrncamera


def test_array_is_the_drivers_block(camera):
    frame = camera.grab()[0]
    assert frame.a.ctypes.data == frame.address("A")
    assert frame.b.ctypes.data == frame.address("B")
    assert frame.a.ctypes.data == frame.images["A"].ctypes.data
    assert not np.shares_memory(frame.a, frame.b)


def test_shape_and_type(camera):
    frame = camera.grab()[0]
    for image in frame.images.values():
        assert image.shape == (frame.height, frame.width) == (camera.height, camera.width)
        assert image.dtype == np.uint8
        assert image.flags.c_contiguous


def test_cannot_be_written(camera):
    image = camera.grab()[0].a
    with pytest.raises(ValueError):
        image[0, 0] = 1
    with pytest.raises(ValueError):
        image.flags.writeable = True


def test_array_outlives_frame_stream_and_camera():
    with zrncamera.open() as camera:
        images = [frame.a for frame in camera.grab(3)]
        copies = [image.copy() for image in images]
    del camera
    gc.collect()
    with zrncamera.open() as camera:  # which overwrites what was given back
        camera.grab(3)
    for image, copy in zip(images, copies):
        assert np.array_equal(image, copy)


def test_many_frames_may_be_kept(camera):
    count = 4 * camera.cache_frame_count
    frames = camera.grab(count)
    addresses = {frame.address(letter) for frame in frames for letter in "AB"}
    assert len(addresses) == 2 * count
    assert len({frame.number for frame in frames}) == count


def test_numbers_and_times_go_on(camera):
    frames = camera.grab(10)
    for before, after in zip(frames, frames[1:]):
        assert after.number == before.number + after.missing + 1
        assert after.time > before.time
        assert after.time_source == "payload"
        assert after.time_ns == pytest.approx(after.time * 1e9, abs=1e6)


def test_pictures_differ_with_exposure(camera):
    camera.exposure_us = 100
    dark = camera.grab(5)[-1].a.mean()
    camera.exposure_us = 25000
    frame = camera.grab(5)[-1]
    assert frame.exposure_us == 25000
    assert frame.a.mean() > 2 * dark


def test_unknown_image(camera):
    frame = camera.grab()[0]
    with pytest.raises(AttributeError):
        frame.address("C")
    assert repr(frame) == f"<Frame {frame.number}, AB of {frame.width}x{frame.height}>"


def test_copies_of_a_frame_are_the_frame(camera):
    frame, other = camera.grab(2)
    assert copy.copy(frame) is copy.deepcopy(frame) is frame
    assert frame == frame != other and len({frame, other}) == 2
    with pytest.raises(TypeError):
        pickle.dumps(frame)
