"""HDF5 files, read by h5py."""

import json

import numpy as np
import pytest
import recordings
from recordings import Frame, exported, stack_of

h5py = pytest.importorskip("h5py")


def test_pixels_and_facts(tmp_path):
    frames = [Frame(7), Frame(8), Frame(11, missing=2)]
    recordings.write(tmp_path / "a.zrnrec", frames)
    exported(tmp_path / "a.zrnrec", "--to", "hdf5", "-o", tmp_path / "a.h5")
    with h5py.File(tmp_path / "a.h5") as file:
        for place, letter in enumerate("AB"):
            assert file[letter].chunks == (1, 11, 37)
            assert file[letter].dtype == np.uint8
            np.testing.assert_array_equal(file[letter], stack_of(frames)[:, place])
        assert list(file["number"]) == [7, 8, 11]
        assert list(file["missing"]) == [0, 0, 2]
        assert list(file["arrival"]) == [frame.arrival for frame in frames]
        assert file["arrival"].attrs["units"] == "ns"
        assert "exposure" not in file  # that format knows none
        assert json.loads(file["metadata"][()]) == {"serial": "ZR1"}
        assert file.attrs["serial"] == "ZR1"
        assert len(file["notes/text"]) == 0


def test_images_of_damaged_frames_are_not_there(tmp_path):
    frames = [Frame(number) for number in range(4)]
    offsets = recordings.write(tmp_path / "a.zrnrec", frames)
    recordings.damage(tmp_path / "a.zrnrec", offsets[3] + recordings.BLOCK + 5)
    run = recordings.zrnrec("export", tmp_path / "a.zrnrec", "--to", "hdf5", "-o", tmp_path / "a.h5")
    assert run.returncode == 1
    with h5py.File(tmp_path / "a.h5") as file:
        np.testing.assert_array_equal(file["A"], stack_of(frames[:3])[:, 0])
