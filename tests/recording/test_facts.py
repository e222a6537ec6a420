"""What today's recordings tell of their frames, in every format that has a place for it."""

import csv
import json
import os
import subprocess
import time
import xml.etree.ElementTree as ElementTree

import numpy as np
import pytest
from recordings import ZRNREC, exported, picture

h5py = pytest.importorskip("h5py")
tifffile = pytest.importorskip("tifffile")
WIDTH, HEIGHT, FRAMES = 40, 24, 3
MILLISECOND = 1_000_000


@pytest.fixture
def recording(tmp_path):
    path = tmp_path / "a.zrnrec"
    subprocess.run([os.environ["MAKE_RECORDING"], path, str(WIDTH), str(HEIGHT), str(FRAMES)], check=True)
    return path


def test_hdf5(recording, tmp_path):
    exported(recording, "--to", "hdf5", "-o", tmp_path / "a.h5")
    with h5py.File(tmp_path / "a.h5") as file:
        for letter in "AB":
            expected = np.stack([picture(number, letter, WIDTH, HEIGHT) for number in range(FRAMES)])
            np.testing.assert_array_equal(file[letter], expected)
        arrival = np.arange(FRAMES) * 10 * MILLISECOND
        for name, expected in {"number": np.arange(FRAMES), "dropped": [0, 1, 0], "exposure": [1500, 1501, 1502],
                               "gain": [10, 11, 12], "camera_captured": [0, 1000, 2000], "arrival": arrival,
                               "first_payload": arrival - 3 * MILLISECOND, "last_payload": arrival - 2 * MILLISECOND,
                               "hand_over": arrival - MILLISECOND}.items():
            np.testing.assert_array_equal(file[name], expected, name)
        assert (np.abs(file["utc"][:] / 1e9 - time.time()) < 600).all()
        notes = {json.loads(text)["event"]: told for text, told in zip(file["notes/text"], file["notes/time"])}
        assert notes["setting"] == 5 * MILLISECOND


def test_json(recording, tmp_path):
    exported(recording, "--to", "raw", "-o", tmp_path / "a.raw")
    told = json.loads((tmp_path / "a.raw.json").read_text())
    assert [frame["exposure_us"] for frame in told["frames"]] == [1500, 1501, 1502]
    assert [frame["hand_over_ns"] for frame in told["frames"]] == [-MILLISECOND, 9 * MILLISECOND, 19 * MILLISECOND]
    assert {"event": "setting", "key": "Gain", "value": 11} in [note["note"] for note in told["notes"]]


def test_info(recording):
    told = json.loads(subprocess.run([ZRNREC, "info", recording], check=True, stdout=subprocess.PIPE).stdout)
    assert told["begin"].startswith(time.strftime("%Y-", time.gmtime())) and told["begin"].endswith("Z")
    setting = {"event": "setting", "key": "Gain", "value": 11}
    assert {"time_ns": 5 * MILLISECOND, "note": setting} in told["notes"]


def test_csv(recording, tmp_path):
    exported(recording, "--to", "csv", "-o", tmp_path / "a.csv")
    with open(tmp_path / "a.csv", newline="") as file:
        rows = list(csv.DictReader(file))
    assert [row["first_payload_s"] for row in rows] == ["-0.003000000", "0.007000000", "0.017000000"]
    assert [row["gain"] for row in rows] == ["10", "11", "12"]
    assert rows[0]["utc"].startswith(time.strftime("%Y-", time.gmtime())) and rows[0]["utc"].endswith("Z")


def test_tiff(recording, tmp_path):
    exported(recording, "--to", "tiff", "-o", tmp_path / "a.ome.tif")
    ome = "{http://www.openmicroscopy.org/Schemas/OME/2016-06}"
    with tifffile.TiffFile(tmp_path / "a.ome.tif") as tiff:
        root = ElementTree.fromstring(tiff.ome_metadata)
    assert [float(plane.get("ExposureTime")) for plane in root.iter(f"{ome}Plane")][::2] == [0.0015, 0.001501, 0.001502]
    assert root.find(f"{ome}Image/{ome}AcquisitionDate").text.startswith(time.strftime("%Y-", time.gmtime()))
    assert any("setting" in note.text for note in root.iter(f"{ome}Note"))
