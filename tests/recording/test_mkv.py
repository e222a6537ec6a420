"""Videos, read by ffmpeg."""

import json
import os
import shutil
import subprocess

import pytest
import recordings
from recordings import Frame, exported, stack_of, zrnrec

pytestmark = pytest.mark.skipif(not shutil.which("ffmpeg") or not shutil.which("ffprobe"),
                                reason="needs ffmpeg")
# Neither width is one of whole words; the times are no whole milliseconds, and some lie far apart.
TIMES = [0, 10_000_123, 10_020_999, 90_000_501, 5_000_000_499]


@pytest.fixture
def frames(tmp_path):
    frames = [Frame(number, width=322, height=240, arrival=arrival) for number, arrival in enumerate(TIMES)]
    recordings.write(tmp_path / "a.zrnrec", frames)
    return frames


def decoded(path, track):
    return subprocess.run(["ffmpeg", "-v", "error", "-i", path, "-map", f"0:v:{track}", "-fps_mode", "passthrough",
                           "-f", "rawvideo", "-pix_fmt", "gray", "-"],
                          check=True, capture_output=True, timeout=120).stdout


def probed(path, *entries):
    run = subprocess.run(["ffprobe", "-v", "error", "-of", "json", *entries, path],
                         check=True, capture_output=True, timeout=120)
    return json.loads(run.stdout)


def test_lossless(tmp_path, frames):
    target = tmp_path / "a.mkv"
    exported(tmp_path / "a.zrnrec", "--to", "mkv", "-o", target)
    for track in range(2):
        assert decoded(target, track) == stack_of(frames)[:, track].tobytes()


def test_times_and_names(tmp_path, frames):
    target = tmp_path / "a.mkv"
    exported(tmp_path / "a.zrnrec", "--to", "mkv", "-o", target)
    packets = probed(target, "-show_entries", "packet=stream_index,pts_time")["packets"]
    microseconds = [f"{(time + 500) // 1000 / 1e6:.6f}" for time in TIMES]
    for track in range(2):
        assert [packet["pts_time"] for packet in packets if packet["stream_index"] == track] == microseconds
    streams = probed(target, "-show_streams")["streams"]
    assert [stream["codec_name"] for stream in streams] == ["ffv1", "ffv1"]
    assert [stream["tags"]["TITLE"] for stream in streams] == ["A", "B"]


def test_for_looking(tmp_path, frames):
    target = tmp_path / "a.mkv"
    run = zrnrec("export", tmp_path / "a.zrnrec", "--to", "mkv", "--codec", "h264", "--images", "B", "-o", target)
    if "GStreamer has no element" in run.stderr:
        pytest.skip(run.stderr)
    assert run.returncode == 0, run.stderr
    streams = probed(target, "-show_streams", "-count_frames")["streams"]
    assert [(stream["codec_name"], stream["nb_read_frames"]) for stream in streams] == [("h264", "5")]


def test_missing_elements_are_named(tmp_path, frames):
    environment = {**os.environ, "GST_PLUGIN_SYSTEM_PATH": str(tmp_path), "GST_PLUGIN_PATH": "",
                   "GST_REGISTRY": str(tmp_path / "registry.bin")}
    run = zrnrec("export", tmp_path / "a.zrnrec", "--to", "mkv", "-o", tmp_path / "a.mkv", env=environment)
    assert run.returncode == 1
    assert "install gstreamer1.0-plugins-" in run.stderr
    assert [path.name for path in tmp_path.glob("a.*")] == ["a.zrnrec"]
