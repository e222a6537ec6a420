#!/usr/bin/env python3
"""A live histogram of both images: live_histogram.py [--virtual] [--frames N] [--save FILE]"""

import argparse

import matplotlib
import numpy as np

import zrncamera

parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("--virtual", action="store_true", help="on a virtual camera")
parser.add_argument("--frames", type=int, help="end after so many pictures")
parser.add_argument("--save", help="file for the last picture, instead of a window")
arguments = parser.parse_args()
if arguments.virtual:
    zrncamera.virtual("type2", rate=30)
if arguments.save:
    matplotlib.use("Agg")
from matplotlib import pyplot  # noqa: E402, after the choice of where it draws

figure, axes = pyplot.subplots()
lines = {letter: axes.step(range(256), np.zeros(256), label=letter)[0] for letter in "AB"}
axes.set(xlabel="value", ylabel="pixels")
axes.legend()

with zrncamera.open() as camera, camera.stream("newest") as stream:
    for shown, frame in enumerate(stream, 1):
        for letter, image in frame.images.items():
            lines[letter].set_ydata(np.bincount(image.ravel(), minlength=256))
        axes.set_title(f"{camera.serial}, frame {frame.number}")
        axes.relim()
        axes.autoscale_view()
        if not arguments.save:
            pyplot.pause(0.001)
        if shown == arguments.frames or not pyplot.get_fignums():
            break
if arguments.save:
    figure.savefig(arguments.save)
