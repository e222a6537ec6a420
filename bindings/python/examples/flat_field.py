#!/usr/bin/env python3
"""Corrects uneven light: flat_field.py [--virtual] [--output FILE]

Averages frames of an even surface, and divides what comes after by that.
"""

import argparse

import numpy as np

import zrncamera

parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("--virtual", action="store_true", help="on a virtual camera")
parser.add_argument("--output", default="flat_field.npz", help="file for the correction")
arguments = parser.parse_args()
if arguments.virtual:
    zrncamera.virtual("type2", rate=30)

with zrncamera.open() as camera:
    flat = {letter: np.zeros((camera.height, camera.width)) for letter in "AB"}
    frames = camera.grab(20)
    for frame in frames:
        for letter, image in frame.images.items():
            flat[letter] += image / len(frames)
    correction = {
        letter: mean.mean() / np.maximum(mean, 1.0) for letter, mean in flat.items() if mean.any()
    }
    np.savez_compressed(arguments.output, **correction)

    frame = camera.grab()[0]
    for letter, image in frame.images.items():
        corrected = image * correction[letter]
        print(f"{letter}: unevenness {image.std():.2f} before, {corrected.std():.2f} after")
