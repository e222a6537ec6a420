"""Virtual cameras."""

from __future__ import annotations

import json
import os
import shutil
import socket
import sys
from collections.abc import Sequence
from pathlib import Path
from typing import Any, NoReturn

from ._errors import ZrnError

_CONTROL = "ZRNSIM_CONTROL"  # which zrnsim tells its command


class VirtualBus:
    """The virtual cameras that this process has on its bus, from outside: their cables and faults."""

    def command(self, name: str, **fields: object) -> dict[str, Any]:
        """Sends a command of zrnsim's control socket, and returns its answer.

        ZrnError: it was refused.
        """
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as control:
            control.connect(os.environ[_CONTROL])
            request: dict[str, object] = {"command": name.replace("_", "-"), **fields}
            control.sendall(json.dumps(request).encode() + b"\n")
            answer: dict[str, Any] = json.loads(control.makefile().readline())
        if not answer.get("ok"):
            raise ZrnError(f"zrnsim: {answer.get('error')}", name="RefusedByZrnsim")
        return answer

    def unplug(self, camera: int = 0) -> None:
        """Pulls the cable of a camera, counted from 0."""
        self.command("unplug", camera=camera)

    def plug(self, camera: int = 0) -> None:
        """Plugs it in again."""
        self.command("plug", camera=camera)


def virtual(*models: str, **keys: object) -> VirtualBus:
    """Runs this script on virtual cameras, one for each model, instead of those on the bus.

    models -- "type0" (without any), "type2", ..., as `zrnsim --list-models` prints them, with keys
              of their own if need be: "type2,serial=7"
    keys   -- keys of zrnsim's --camera for all of them: rate=60, sizes="320x240", ...

    Call it first in a script: it starts the script once more, under zrnsim, where the same call
    returns at once. In a process that has virtual cameras already, as one that was started with
    `zrnsim --camera type2 -- python3`, it does nothing but return.

    ZrnError: zrnsim is missing, or this is no script that can be started once more, but a prompt or
    a notebook: start that under zrnsim.
    """
    if _CONTROL not in os.environ:
        restart(models, keys, _own_command())
    return VirtualBus()


def restart(models: Sequence[str], keys: dict[str, object], command: Sequence[str]) -> NoReturn:
    """Replaces this process by a command that has virtual cameras on its bus."""
    beside = Path(__file__).with_name("zrnsim")
    zrnsim = str(beside) if os.access(beside, os.X_OK) else shutil.which("zrnsim")
    if zrnsim is None:
        raise ZrnError(
            "zrnsim was not found", name="NoZrnsim", hint="install the package zrncamera-simulator"
        )
    words = [zrnsim]
    for model in models or ("type0",):
        given = "".join(f",{key}={value}" for key, value in keys.items())
        words += ["--camera", model + given]
    sys.stdout.flush()
    sys.stderr.flush()
    os.execv(zrnsim, [*words, "--", *command])


def _own_command() -> list[str]:
    main = sys.modules["__main__"]
    if sys.argv[0] in ("", "-") or not (hasattr(main, "__file__") or sys.argv[0] == "-c"):
        raise ZrnError(
            "a prompt or a notebook cannot be started once more",
            name="NotAScript",
            hint="start it on virtual cameras: zrnsim --camera type2 -- python3",
        )
    return [sys.executable, *sys.orig_argv[1:]]
