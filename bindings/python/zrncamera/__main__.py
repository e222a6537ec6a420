"""`python3 -m zrncamera` lists the cameras; with --virtual MODEL, it runs a script on virtual ones."""

from __future__ import annotations

import argparse
import sys

import zrncamera
from zrncamera._virtual import restart


def main() -> None:
    parser = argparse.ArgumentParser(prog="python3 -m zrncamera", description=__doc__)
    parser.add_argument("--virtual", metavar="MODEL", action="append", help="once for each camera")
    parser.add_argument("script", nargs=argparse.REMAINDER, help="a script and its arguments")
    arguments = parser.parse_args()
    if arguments.script:
        restart(arguments.virtual or (), {}, [sys.executable, *arguments.script])
    if arguments.virtual:
        zrncamera.virtual(*arguments.virtual)
    for camera in zrncamera.list():
        print(camera)


if __name__ == "__main__":
    main()
