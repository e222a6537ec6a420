"""Recordings of several cameras, put side by side by the time of day."""

import csv
import json
import os
import subprocess
import time

import pytest
import recordings
from recordings import Frame, zrnrec

PERIOD = 10_000_000
MILLISECOND = 1_000_000
NONE = 1 << 31  # no frame has that number


@pytest.fixture
def begin():
    return time.monotonic_ns() - 60_000 * MILLISECOND


def record(path, serial, begin, frames=50, period=PERIOD, skipped=NONE):
    subprocess.run([os.environ["MAKE_RECORDING"], path, "8", "8", str(frames), serial, str(begin), str(period),
                    str(skipped)], check=True)
    return path


def paired(folder, *arguments):
    run = zrnrec("pair", *arguments, "-o", folder / "pairs.csv")
    assert run.returncode == 0, run.stderr
    with open(folder / "pairs.csv", newline="") as file:
        rows = list(csv.DictReader(file))
    told = json.loads(run.stdout)
    assert told["rows"] == len(rows)
    return told, {camera["serial"]: camera for camera in told["cameras"]}, rows


def numbers(rows, serial):
    return [row[serial + " number"] for row in rows]


def test_frames_of_the_same_time_are_in_a_row(tmp_path, begin):
    a = record(tmp_path / "a.zrnrec", "ZR1", begin)
    b = record(tmp_path / "b.zrnrec", "ZR2", begin + 3 * MILLISECOND)
    told, cameras, rows = paired(tmp_path, a, b)
    assert told["complete"] == 50 and told["withinMs"] == pytest.approx(5)
    assert cameras["ZR2"]["paired"] == 50 and cameras["ZR2"]["unpaired"] == 0
    assert cameras["ZR2"]["phaseMs"]["median"] == pytest.approx(3, abs=0.1)
    assert abs(cameras["ZR2"]["driftPpm"]) < 100
    assert numbers(rows, "ZR1") == numbers(rows, "ZR2") == [str(number) for number in range(50)]
    assert all(float(row["ZR2 phase_s"]) == pytest.approx(0.003, abs=1e-4) for row in rows)


def test_each_frame_is_in_the_table_once_and_missing_ones_leave_holes(tmp_path, begin):
    a = record(tmp_path / "a.zrnrec", "ZR1", begin, skipped=7)
    b = record(tmp_path / "b.zrnrec", "ZR2", begin - 2 * PERIOD - MILLISECOND, skipped=20)
    told, cameras, rows = paired(tmp_path, a, b)
    assert cameras["ZR1"]["missing"] == cameras["ZR2"]["missing"] == 1
    assert sorted(filter(None, numbers(rows, "ZR1")), key=int) == [str(n) for n in range(50) if n != 7]
    assert sorted(filter(None, numbers(rows, "ZR2")), key=int) == [str(n) for n in range(50) if n != 20]
    pairs = dict(zip(numbers(rows, "ZR1"), numbers(rows, "ZR2")))
    assert pairs["10"] == "12" and pairs["18"] == ""
    assert "7" not in pairs and ("", "9") in zip(numbers(rows, "ZR1"), numbers(rows, "ZR2"))
    assert told["complete"] == 46 and [row["utc"] for row in rows] == sorted(row["utc"] for row in rows)


def test_a_faster_camera_drifts(tmp_path, begin):
    a = record(tmp_path / "a.zrnrec", "ZR1", begin, frames=300)
    b = record(tmp_path / "b.zrnrec", "ZR2", begin, frames=300, period=PERIOD - 10_000)
    camera = paired(tmp_path, a, b)[1]["ZR2"]
    assert camera["driftPpm"] == pytest.approx(-1000, abs=20)
    assert camera["periodMs"] == pytest.approx(9.99, abs=1e-3)


def test_files_of_one_camera_belong_together(tmp_path, begin):
    late = record(tmp_path / "a2.zrnrec", "ZR1", begin + 50 * PERIOD)
    early = record(tmp_path / "a1.zrnrec", "ZR1", begin)
    b = record(tmp_path / "b.zrnrec", "ZR2", begin, frames=100)
    told, cameras, rows = paired(tmp_path, late, early, b)
    assert told["complete"] == 100 and len(cameras["ZR1"]["files"]) == 2
    assert [row["ZR1 file"] for row in rows] == 50 * [str(early)] + 50 * [str(late)]


def test_frames_too_far_apart_are_no_pair(tmp_path, begin):
    a = record(tmp_path / "a.zrnrec", "ZR1", begin)
    b = record(tmp_path / "b.zrnrec", "ZR2", begin + 3 * MILLISECOND)
    told, cameras, rows = paired(tmp_path, a, b, "--within", "2")
    assert told["complete"] == 0 and cameras["ZR2"]["unpaired"] == 50 and len(rows) == 100


def test_frames_without_a_date_are_counted(tmp_path, begin):
    recordings.write(tmp_path / "old.zrnrec", [Frame(number) for number in range(5)])
    a = record(tmp_path / "a.zrnrec", "ZR2", begin)
    told, cameras, rows = paired(tmp_path, a, tmp_path / "old.zrnrec")
    assert cameras["ZR1"] == {**cameras["ZR1"], "undated": 5, "frames": 0, "paired": 0}
    assert len(rows) == 50 and told["complete"] == 0


def test_what_is_no_recording_is_refused(tmp_path):
    (tmp_path / "a.zrnrec").write_text("no recording")
    assert zrnrec("pair", tmp_path / "a.zrnrec").returncode == 1
