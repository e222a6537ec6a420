"""Recordings."""

from __future__ import annotations

import json
import os
from collections.abc import Iterator, Sequence
from types import TracebackType
from typing import Any, Optional, Union, overload

from . import _zrncamera
from ._camera import Camera
from ._errors import ZrnError
from ._zrncamera import Frame


class Recording(Sequence[Frame]):
    """A recording as a sequence of frames. A slice of it is one, too.

    Images are views of the file itself, read when they are looked at, and valid as long as they
    live. A file that is made shorter meanwhile ends the program. Two are equal that have the same
    frames of the same file.

    ZrnError: the file is no recording, or a frame in it was damaged.
    """

    def __init__(self, path: Union[str, "os.PathLike[str]"]) -> None:
        self._path = os.fspath(path)
        self._recording = _zrncamera.read_recording(self._path)
        self._places = range(len(self._recording))
        status = os.stat(self._path)
        self._file = (status.st_dev, status.st_ino, status.st_size, status.st_mtime_ns)

    @property
    def metadata(self) -> dict[str, Any]:
        """What the writer noted."""
        noted = json.loads(self._recording.metadata or "{}")
        return noted if isinstance(noted, dict) else {}

    @property
    def complete(self) -> bool:
        """Whether the writer closed it. If not, the frames up to the cut are there."""
        return self._recording.complete

    @property
    def version(self) -> int:
        """Of its format. Files of version 1 know neither notes nor dates, and their frames' times
        begin with the first frame."""
        return self._recording.version

    @property
    def notes(self) -> list[tuple[float, dict[str, Any]]]:
        """What happened meanwhile: times in seconds on the clock of its frames, and what it was."""
        notes = []
        for nanoseconds, text in self._recording.notes:
            try:
                told = json.loads(text)
            except ValueError:
                told = text
            notes.append((nanoseconds / 1e9, told if isinstance(told, dict) else {"text": text}))
        return notes

    def wall_time_ns(self, time_ns: int) -> Optional[int]:
        """The date of a time of its frames, in nanoseconds since 1970; None where the recording
        does not tell."""
        return self._recording.wall_time_ns(time_ns)

    @property
    def seconds(self) -> float:
        """From the first frame of the file to the last readable one."""
        return self._recording.seconds

    def check(self, position: int) -> Frame:
        """A frame in memory of its own, whose images were compared with their checksum.

        ZrnError: it was damaged.
        """
        return self._recording.frame(self._place(position))

    def __len__(self) -> int:
        return len(self._places)

    @overload
    def __getitem__(self, position: int) -> Frame: ...

    @overload
    def __getitem__(self, position: slice) -> Recording: ...

    def __getitem__(self, position: Union[int, slice]) -> Union[Frame, Recording]:
        if not isinstance(position, slice):
            return self._recording.view(self._place(position))
        part = Recording.__new__(Recording)
        part._path = self._path
        part._file = self._file
        part._recording = self._recording
        part._places = self._places[position]
        return part

    def _place(self, position: int) -> int:
        try:
            return self._places[position]
        except IndexError:
            raise IndexError(f"there is no frame {position} among {len(self)}") from None

    def __iter__(self) -> Iterator[Frame]:
        return map(self._recording.view, self._places)

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Recording):
            return NotImplemented
        return self._file == other._file and self._places == other._places

    def __hash__(self) -> int:
        return hash((self._file, self._places))

    def __repr__(self) -> str:
        cut = "" if self.complete else ", not complete"
        return f"<Recording {self._path}: {len(self)} frames{cut}>"


class Recorder:
    """Writes a recording, without dropping frames: add() waits when the disk falls behind.

    metadata -- what Recording.metadata gives back

    ZrnError: the file exists, or cannot be written.
    """

    def __init__(self, path: Union[str, "os.PathLike[str]"], **metadata: object) -> None:
        self._path = os.fspath(path)
        self._recorder = _zrncamera.write_recording(self._path, json.dumps(metadata))

    def add(self, frame: Frame) -> None:
        """Hands a frame over, which is written later.

        ZrnError: the recording has ended, as when the disk is full.
        """
        if not self._recorder.add(frame):
            raise ZrnError(self._recorder.error or "the recording has ended", name="NotWritable")

    def note(self, event: str, **details: object) -> None:
        """Keeps what happens now, for Recording.notes."""
        self._recorder.note(json.dumps({"event": event, **details}))

    def watch(self, camera: Camera) -> None:
        """Keeps notes of the settings of a camera: how it is set now, and each change to come.

        CameraGone, ZrnError: it could not be asked.
        """
        self._recorder.watch(camera._camera)

    def finish(self) -> None:
        """Waits until all is written, and completes the file. ZrnError: it could not be."""
        self._recorder.finish()
        if self._recorder.error:
            raise ZrnError(self._recorder.error, name="NotWritable")

    @property
    def frames(self) -> int:
        """Frames that are written."""
        return self._recorder.frames

    def __repr__(self) -> str:
        return f"<Recorder {self._path}: {self.frames} frames written>"

    def __enter__(self) -> Recorder:
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        self.finish()
