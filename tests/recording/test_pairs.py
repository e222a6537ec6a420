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


def record(path, serial, begin, frames=50, period=PERIOD, skipped=NONE, first=0):
    subprocess.run([os.environ["MAKE_RECORDING"], path, "8", "8", str(frames), serial, str(begin), str(period),
                    str(skipped), str(first)], check=True)
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


def test_a_camera_that_starts_anew_beside_the_other_does_not_drift(tmp_path, begin):
    a = record(tmp_path / "a.zrnrec", "ZR1", begin, frames=150)
    b = [record(tmp_path / f"b{part}.zrnrec", "ZR2", begin + 51 * part * PERIOD + phase, first=50 * part)
         for part, phase in enumerate((MILLISECOND, 3 * MILLISECOND, -2 * MILLISECOND))]
    camera = paired(tmp_path, a, *b)[1]["ZR2"]
    assert camera["paired"] == 148
    assert abs(camera["driftPpm"]) < 20 and camera["driftErrorPpm"] < 20


def test_drift_is_found_across_restarts(tmp_path, begin):
    a = record(tmp_path / "a.zrnrec", "ZR1", begin, frames=400)
    b = [record(tmp_path / f"b{part}.zrnrec", "ZR2", begin + 205 * part * PERIOD - 3 * part * MILLISECOND, frames=195,
                period=PERIOD + 5_000) for part in range(2)]
    camera = paired(tmp_path, a, *b)[1]["ZR2"]
    assert camera["driftPpm"] == pytest.approx(500, abs=20)


def test_frames_between_the_recordings_are_counted(tmp_path, begin):
    early = record(tmp_path / "a1.zrnrec", "ZR1", begin)
    late = record(tmp_path / "a2.zrnrec", "ZR1", begin + 70 * PERIOD, first=57, skipped=60)
    anew = record(tmp_path / "a3.zrnrec", "ZR1", begin + 200 * PERIOD)
    sooner = record(tmp_path / "a4.zrnrec", "ZR1", begin + 260 * PERIOD, first=9000)
    cameras = paired(tmp_path, anew, sooner, late, early)[1]
    assert cameras["ZR1"] == {**cameras["ZR1"], "frames": 199, "missing": 1, "unrecorded": 7, "restarts": 2}


def test_files_that_follow_each_other_lack_nothing(tmp_path, begin):
    a = [record(tmp_path / f"a{part}.zrnrec", "ZR1", begin + 50 * part * PERIOD, first=2**32 - 60 + 50 * part)
         for part in range(3)]
    cameras = paired(tmp_path, *a)[1]
    assert cameras["ZR1"] == {**cameras["ZR1"], "frames": 150, "missing": 0, "unrecorded": 0, "restarts": 0}


def test_the_same_frames_twice_are_refused(tmp_path, begin):
    a = record(tmp_path / "a.zrnrec", "ZR1", begin)
    (tmp_path / "link.zrnrec").symlink_to(a)
    (tmp_path / "copy.zrnrec").write_bytes(a.read_bytes())
    for other, said in ((a, "given twice"), (tmp_path / "link.zrnrec", "given twice"), (tmp_path / "copy.zrnrec", "same frames")):
        refused = zrnrec("pair", a, other)
        assert refused.returncode == 1 and said in refused.stderr and not refused.stdout


@pytest.mark.parametrize("within", ["0", "-1", "1e-7", "3600001", "1e13", "nan"])
def test_distances_that_mean_nothing_are_refused(tmp_path, begin, within):
    a = record(tmp_path / "a.zrnrec", "ZR1", begin)
    refused = zrnrec("pair", a, "--within", within)
    assert refused.returncode == 2 and "within" in refused.stderr


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
