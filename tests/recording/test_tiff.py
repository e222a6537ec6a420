"""TIFF stacks, read by tifffile."""

import json
import xml.etree.ElementTree as ElementTree

import numpy as np
import pytest
import recordings
from recordings import Frame, exported, stack_of

tifffile = pytest.importorskip("tifffile")
OME = "{http://www.openmicroscopy.org/Schemas/OME/2016-06}"


@pytest.fixture
def frames(tmp_path):
    frames = [Frame(7), Frame(8), Frame(11, missing=2)]
    recordings.write(tmp_path / "a.zrnrec", frames)
    return frames


def test_pixels(tmp_path, frames):
    target = tmp_path / "a.ome.tif"
    exported(tmp_path / "a.zrnrec", "--to", "tiff", "-o", target)
    with tifffile.TiffFile(target) as tiff:
        assert tiff.is_bigtiff and tiff.is_ome
        assert tiff.series[0].axes == "TCYX"
        read = tiff.asarray()
    assert read.dtype == np.uint8
    np.testing.assert_array_equal(read, stack_of(frames))


def test_facts(tmp_path, frames):
    target = tmp_path / "a.ome.tif"
    exported(tmp_path / "a.zrnrec", "--to", "tiff", "-o", target)
    with tifffile.TiffFile(target) as tiff:
        root = ElementTree.fromstring(tiff.ome_metadata)
    pixels = root.find(f"{OME}Image/{OME}Pixels")
    assert [channel.get("Name") for channel in pixels.iter(f"{OME}Channel")] == ["A", "B"]
    planes = [(int(plane.get("TheT")), int(plane.get("TheC")), float(plane.get("DeltaT")))
              for plane in pixels.iter(f"{OME}Plane")]
    assert planes == [(t, c, frame.arrival / 1e9) for t, frame in enumerate(frames) for c in range(2)]
    told = [(int(frame.get("number")), int(frame.get("missing"))) for frame in root.iter(f"{OME}Frame")]
    assert told == [(7, 0), (8, 0), (11, 2)]
    assert json.loads(root.find(f".//{OME}Metadata").text) == {"serial": "ZR1"}


def test_one_image(tmp_path):
    frames = [Frame(1, letters="B"), Frame(2, letters="B")]
    recordings.write(tmp_path / "b.zrnrec", frames)
    target = tmp_path / "b.ome.tif"
    exported(tmp_path / "b.zrnrec", "--to", "tiff", "-o", target)
    np.testing.assert_array_equal(tifffile.imread(target), stack_of(frames, "B")[:, 0])
