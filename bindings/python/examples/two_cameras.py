#!/usr/bin/env python3
"""Two cameras side by side: two_cameras.py [--virtual] [--output FILE.npy]

Joins the frames that were taken closest to each other.
"""

import argparse

import numpy as np

import zrncamera

parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("--virtual", action="store_true", help="on two virtual cameras")
parser.add_argument("--output", default="two_cameras.npy", help="file for the last pair")
arguments = parser.parse_args()
if arguments.virtual:
    zrncamera.virtual("type2", "type7", rate=20)

with zrncamera.open(index=0) as left, zrncamera.open(index=1) as right:
    with left.stream() as left_stream, right.stream() as right_stream:
        after = next(right_stream)
        for frame in left_stream:
            before = after
            while after.time < frame.time:
                before, after = after, next(right_stream)
            partner = min(before, after, key=lambda other: abs(other.time - frame.time))
            print(f"{frame.number:6} {partner.number:6}  {partner.time - frame.time:+.4f} s")
            if frame.number > 10:
                break
images = list(frame.images.values())[:1] + list(partner.images.values())[:1]
rows = min(image.shape[0] for image in images)
np.save(arguments.output, np.hstack([image[:rows] for image in images]))
