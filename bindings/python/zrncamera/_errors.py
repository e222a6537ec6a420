"""What can go wrong."""

from __future__ import annotations

from collections.abc import Sequence


class ZrnError(Exception):
    """What went wrong with a camera, the driver or a recording.

    code -- the driver's answer as a number; 0 where it was not asked
    name -- one word, stable, for scripts: "NoCameraOnBus", "ExposureWriteFailed", ...
    hint -- what can be done about it; may be empty
    """

    def __init__(self, message: str, code: int = 0, name: str = "", hint: str = "") -> None:
        super().__init__(message, code, name, hint)
        self.message = message
        self.code = code
        self.name = name
        self.hint = hint

    def __str__(self) -> str:
        return f"{self.message}; {self.hint}" if self.hint else self.message


class GrabTimeout(ZrnError, TimeoutError):
    """No frame came for as long as the wait was to last; the camera still answers."""


class CameraGone(ZrnError):
    """The camera that was open does not answer any more, as when it was unplugged."""

    def __init__(
        self,
        message: str = "the camera does not answer any more",
        code: int = 0,
        name: str = "CameraGone",
        hint: str = (
            "check its cable, and open it again; a stream with keep_alive=True that runs does so by itself"
        ),
    ) -> None:
        super().__init__(message, code, name, hint)


class CameraBusy(ZrnError):
    """Another program has the camera.

    holders -- pairs of process id and program, as far as this user may see
    """

    def __init__(
        self,
        message: str,
        code: int = 0,
        name: str = "",
        hint: str = "",
        holders: Sequence[tuple[int, str]] = (),
    ) -> None:
        super().__init__(message, code, name, hint)
        self.args = (message, code, name, hint, holders)
        self.holders = [(pid, program) for pid, program in holders]

    @property
    def holder(self) -> str:
        """The same as text: "zrnview (pid 4711)"."""
        return ", ".join(f"{program} (pid {pid})" for pid, program in self.holders)
