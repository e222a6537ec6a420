"""Raw stacks, tables and pictures, read by numpy, Python's csv and Pillow."""

import csv
import json

import numpy as np
import pytest
import recordings
from recordings import Frame, exported, stack_of

Image = pytest.importorskip("PIL.Image")


@pytest.fixture
def frames(tmp_path):
    frames = [Frame(7), Frame(8), Frame(11, missing=2), Frame(12), Frame(13)]
    recordings.write(tmp_path / "a.zrnrec", frames)
    return frames


def test_raw(tmp_path, frames):
    target = tmp_path / "a.raw"
    exported(tmp_path / "a.zrnrec", "--to", "raw", "-o", target)
    told = json.loads((tmp_path / "a.raw.json").read_text())
    assert told["shape"] == [5, 2, 11, 37] and told["type"] == "uint8"
    assert told["images"] == ["A", "B"] and told["metadata"] == {"serial": "ZR1"}
    assert [frame["number"] for frame in told["frames"]] == [7, 8, 11, 12, 13]
    assert [frame["arrival_ns"] for frame in told["frames"]] == [frame.arrival for frame in frames]
    np.testing.assert_array_equal(np.fromfile(target, np.uint8).reshape(told["shape"]), stack_of(frames))


def test_chosen_frames(tmp_path, frames):
    target = tmp_path / "a.raw"
    run = exported(tmp_path / "a.zrnrec", "--to", "raw", "--first", 1, "--every", 2, "-n", 2, "--images", "B",
                   "-o", target)
    assert run.stdout == "2 frames exported\n"
    told = json.loads((tmp_path / "a.raw.json").read_text())
    assert [frame["position"] for frame in told["frames"]] == [1, 3]
    np.testing.assert_array_equal(np.fromfile(target, np.uint8).reshape(told["shape"]),
                                  stack_of([frames[1], frames[3]], "B"))


def test_csv(tmp_path, frames):
    target = tmp_path / "a.csv"
    exported(tmp_path / "a.zrnrec", "--to", "csv", "-o", target)
    with open(target, newline="") as file:
        rows = list(csv.DictReader(file))
    assert [int(row["number"]) for row in rows] == [7, 8, 11, 12, 13]
    assert [int(row["missing"]) for row in rows] == [0, 0, 2, 0, 0]
    assert [row["arrival_s"] for row in rows] == [f"0.{frame.arrival:09d}" for frame in frames]
    assert [row["interval_s"] for row in rows] == ["", "0.010000123", "0.030000369", "0.010000123", "0.010000123"]
    assert rows[0]["images"] == "AB" and rows[0]["exposure_us"] == ""


def test_csv_into_a_pipe(tmp_path, frames):
    assert exported(tmp_path / "a.zrnrec", "--to", "csv", "-o", "/dev/stdout").stdout.startswith("position,number,")


def test_png(tmp_path, frames):
    target = tmp_path / "pictures"
    exported(tmp_path / "a.zrnrec", "-o", target)
    assert len(list(target.iterdir())) == 10
    for position, frame in enumerate(frames):
        for letter in "AB":
            with Image.open(target / f"{position:06d}_{frame.number}_{letter}.png") as image:
                np.testing.assert_array_equal(np.asarray(image), frame.image(letter))
                assert image.text["Serial"] == "ZR1"
