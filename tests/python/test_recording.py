"""Recordings as sequences over the file itself."""

import numpy as np
import pytest

import zrncamera


@pytest.fixture
def recorded(camera, tmp_path):
    """A file, and the frames that are in it."""
    path = tmp_path / "test.zrnrec"
    frames = camera.grab(12)
    with zrncamera.Recorder(path, serial=camera.serial, sample=7) as recorder:
        for frame in frames:
            recorder.add(frame)
    assert recorder.frames == 12
    return path, frames


def test_gives_back_what_was_recorded(recorded, camera):
    path, frames = recorded
    recording = zrncamera.Recording(path)
    assert len(recording) == 12 and recording.complete
    assert recording.metadata == {"serial": camera.serial, "sample": 7}
    for frame, stored in zip(frames, recording):
        assert frame.number == stored.number
        assert np.array_equal(frame.a, stored.a) and np.array_equal(frame.b, stored.b)
    times = [stored.time for stored in recording]
    assert times[0] == 0 and times == sorted(set(times))
    assert recording.seconds == pytest.approx(times[-1])


def test_slices(recorded):
    path, frames = recorded
    recording = zrncamera.Recording(path)
    numbers = [frame.number for frame in frames]
    assert [frame.number for frame in recording[2:9:3]] == numbers[2:9:3]
    assert [frame.number for frame in recording[::-1]] == numbers[::-1]
    assert recording[-1].number == recording[5:][6].number == numbers[-1]
    assert len(recording[20:]) == 0
    with pytest.raises(IndexError):
        recording[12]
    with pytest.raises(IndexError):
        recording[3:5][2]


def mapped_files(address):
    """The file that lies at an address of this process."""
    for line in open("/proc/self/maps"):
        begin, end = (int(part, 16) for part in line.split()[0].split("-"))
        if begin <= address < end:
            return line.split()[-1]


def test_images_are_views_of_the_file(recorded):
    path, frames = recorded
    image = zrncamera.Recording(path)[3].a  # which keeps the file open
    assert mapped_files(image.ctypes.data) == str(path)
    assert not image.flags.writeable
    assert np.array_equal(image, frames[3].a)


def test_writing_to_an_image_all_the_same_leaves_the_file_alone(recorded, run):
    """As OpenCV's drawing functions do, which ask nobody."""
    path, frames = recorded
    before = path.read_bytes()
    script = """
import ctypes, sys, zrncamera
recording = zrncamera.Recording(sys.argv[1])
image = recording[3].a
ctypes.memset(image.ctypes.data, 7, image.size)
print((recording[3].a == 7).all())
"""
    assert run(script, path) == "True\n"
    assert path.read_bytes() == before


def test_check_finds_damage(recorded):
    path, frames = recorded
    recording = zrncamera.Recording(path)
    assert np.array_equal(recording.check(3).a, frames[3].a)
    damaged = bytearray(path.read_bytes())
    place = damaged.find(frames[3].a.tobytes())
    damaged[place + 100] ^= 1
    path.write_bytes(damaged)
    recording = zrncamera.Recording(path)
    assert not np.array_equal(recording[3].a, frames[3].a)
    with pytest.raises(zrncamera.ZrnError, match="damaged"):
        recording[2:].check(1)


def test_no_recording(tmp_path):
    path = tmp_path / "other"
    path.write_bytes(b"text" * 100)
    with pytest.raises(zrncamera.ZrnError) as caught:
        zrncamera.Recording(path)
    assert caught.value.name == "NotARecording"
    with pytest.raises(zrncamera.ZrnError):
        zrncamera.Recorder(path)


def test_equality_and_text(recorded):
    path, frames = recorded
    recording = zrncamera.Recording(path)
    assert recording == zrncamera.Recording(path) == recording[:] and recording[1:] != recording
    assert len({recording, zrncamera.Recording(path), recording[3:]}) == 2
    assert recording[3] == recording[3] != recording[4] and recording.index(recording[7]) == 7
    assert recording[3] in recording and frames[3] not in recording
    assert repr(recording) == f"<Recording {path}: 12 frames>"
    with pytest.raises(IndexError, match="no frame 12 among 12"):
        recording[12]
