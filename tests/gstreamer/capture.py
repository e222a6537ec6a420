"""Writes ten images of a camera, as OpenCV captures them, into a file: capture.py FILE"""

import sys

import cv2

capture = cv2.VideoCapture("zrnsrc num-buffers=10 ! queue ! appsink sync=false", cv2.CAP_GSTREAMER)
with open(sys.argv[1], "wb") as file:
    while True:
        is_there, image = capture.read()
        if not is_there:
            break
        file.write(image.tobytes())
capture.release()
