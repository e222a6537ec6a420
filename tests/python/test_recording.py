"""Recordings as sequences over the file itself."""

import pathlib
import time

import numpy as np
import pytest

import zrncamera

VERSION_1 = pathlib.Path(__file__).parent.parent / "client" / "data" / "version1.zrnrec"


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
        assert frame.time_ns == stored.time_ns and frame.time_source == stored.time_source
        assert frame.exposure_us == stored.exposure_us > 0 and frame.gain == stored.gain
    assert recording.version == 2
    assert recording.seconds > 0


def test_notes_and_dates(recorded, tmp_path):
    path, frames = recorded
    before = time.time_ns()
    with zrncamera.Recorder(tmp_path / "noted.zrnrec") as recorder:
        recorder.note("setting", key="Gain", value=3)
        recorder.add(frames[0])
    recording = zrncamera.Recording(tmp_path / "noted.zrnrec")
    [(when, what)] = recording.notes
    assert what == {"event": "setting", "key": "Gain", "value": 3}
    date = recording.wall_time_ns(int(when * 1e9))
    assert abs(date - before) < 3600e9
    assert zrncamera.Recording(path).notes == []


def test_settings_of_a_watched_camera(camera, tmp_path):
    camera.gain = 20
    with zrncamera.Recorder(tmp_path / "watched.zrnrec") as recorder:
        recorder.watch(camera)
        before = time.monotonic()
        camera.gain = 21
        recorder.add(camera.grab()[0])
    camera.gain = 20
    notes = zrncamera.Recording(tmp_path / "watched.zrnrec").notes
    assert all(what["event"] == "setting" for _, what in notes)
    assert {"Exposure", "Gain", "Gamma"} <= {what["key"] for _, what in notes}
    gains = [(when > before, what["value"]) for when, what in notes if what["key"] == "Gain"]
    assert gains == [(False, 20), (True, 21)]


def test_reads_version_1():
    recording = zrncamera.Recording(VERSION_1)
    assert len(recording) == 4 and recording.version == 1 and recording.complete
    assert [frame.time_ns for frame in recording] == [0, 1000000, 2000000, 3000000]
    assert recording[2].a.shape == (11, 37) and recording[2].exposure_us == 0
    assert recording.notes == [] and recording.wall_time_ns(0) is None


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
