#!/usr/bin/env python3
"""Finds the position of a stage at which the image is sharpest: focus_sweep.py [--virtual]"""

import argparse

import numpy as np

import zrncamera

parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("--virtual", action="store_true", help="on a virtual camera")
arguments = parser.parse_args()
if arguments.virtual:
    zrncamera.virtual("type2", rate=30)


def move_stage(position: float) -> None:
    """Yours to write: moves the lens or the sample, and waits until it stands."""


def sharpness(image: np.ndarray) -> float:
    """Mean square of the gradient: largest where edges are steepest."""
    rows, columns = np.gradient(image[::2, ::2].astype(np.float32))
    return float(np.mean(rows**2 + columns**2))


with zrncamera.open() as camera:
    found = {}
    for position in np.linspace(0.0, 1.0, 11):
        move_stage(position)
        # A stream of its own for each position: no frame in it was exposed while the stage moved.
        found[position] = np.mean([sharpness(frame.a) for frame in camera.grab(3)])
        print(f"{position:5.2f}  {found[position]:10.2f}")
best = max(found, key=found.get)
move_stage(best)
print(f"sharpest at {best:.2f}")
