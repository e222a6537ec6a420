"""Writes ten images of a camera, as an appsink gives them, into a file: appsink.py FILE"""

import sys

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstApp", "1.0")
from gi.repository import Gst, GstApp  # noqa: E402, F401

Gst.init(None)
pipeline = Gst.parse_launch("zrnsrc num-buffers=10 ! queue ! appsink name=sink sync=false")
sink = pipeline.get_by_name("sink")
pipeline.set_state(Gst.State.PLAYING)
with open(sys.argv[1], "wb") as file:
    while sample := sink.try_pull_sample(20 * Gst.SECOND):
        buffer = sample.get_buffer()
        file.write(buffer.extract_dup(0, buffer.get_size()))
pipeline.set_state(Gst.State.NULL)
