#!/usr/bin/python3
"""Serves image A of the first free camera as rtsp://HOST:8554/a: rtsp_server.py [PORT]"""

import sys

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstRtspServer", "1.0")
from gi.repository import GLib, Gst, GstRtspServer  # noqa: E402

Gst.init(None)
factory = GstRtspServer.RTSPMediaFactory()
factory.set_launch("( zrnsrc ! queue leaky=downstream ! videoconvert ! "
                   "vp8enc deadline=1 keyframe-max-dist=30 ! rtpvp8pay name=pay0 )")
factory.set_shared(True)  # one camera, any number of viewers

server = GstRtspServer.RTSPServer()
server.set_service(sys.argv[1] if len(sys.argv) > 1 else "8554")
server.get_mount_points().add_factory("/a", factory)
server.attach(None)
GLib.MainLoop().run()
