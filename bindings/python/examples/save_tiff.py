#!/usr/bin/env python3
"""Saves frames as TIFF files, with their settings: save_tiff.py [--virtual] [--frames N] FOLDER"""

import argparse
import json
from pathlib import Path

from PIL import Image
from PIL.TiffImagePlugin import ImageFileDirectory_v2

import zrncamera

IMAGE_DESCRIPTION = 270  # the tag for text

parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("--virtual", action="store_true", help="on a virtual camera")
parser.add_argument("--frames", type=int, default=10)
parser.add_argument("folder", type=Path)
arguments = parser.parse_args()
if arguments.virtual:
    zrncamera.virtual("type2", rate=30)

arguments.folder.mkdir(parents=True, exist_ok=True)
with zrncamera.open() as camera:
    for frame in camera.grab(arguments.frames):
        tags = ImageFileDirectory_v2()
        tags[IMAGE_DESCRIPTION] = json.dumps(
            {
                "serial": camera.serial,
                "number": frame.number,
                "seconds": frame.time,
                "exposure_us": frame.exposure_us,
                "gain": frame.gain,
            }
        )
        for letter, image in frame.images.items():
            path = arguments.folder / f"{frame.number:06}{letter}.tif"
            Image.fromarray(image).save(path, tiffinfo=tags)
            print(path)
