"""Two cameras: the life of one is no sign of that of the other, nor is its absence."""

import json
import os
import subprocess

import pytest

from serving import PATIENCE, control, wait_until
from test_service import ALIVE, SILENCE, record, service  # noqa: F401


def is_streaming(index):
    answer = subprocess.run([os.environ["ZRNSIM_CTL"], "camera", f"camera={index}"],
                            check=True, capture_output=True, text=True)
    return json.loads(answer.stdout)["camera"]["streaming"]


def records_both(service, *options):  # noqa: F811
    """A recorder that has told of both."""
    recorder = service(*record("--all", *options))
    heard = [recorder.hears()]
    while heard.count("READY=1") < 2:
        heard.append(recorder.hears())
    return recorder


def test_a_recorder_lives_when_each_camera_does(service):  # noqa: F811
    control("freeze", "camera=1")
    try:
        recorder = records_both(service, "--wait", "60s", "--frames", "60")
        # Neither the life nor the end of the other one is a sign of this one's.
        wait_until(lambda: is_streaming(1) and not is_streaming(0))
        recorder.socket.settimeout(SILENCE)
        with pytest.raises(TimeoutError):
            recorder.hears()
        assert recorder.process.poll() is None
    finally:
        control("thaw", "camera=1")
    recorder.socket.settimeout(PATIENCE)
    assert recorder.hears() == ALIVE


def test_a_camera_that_is_out_keeps_no_other_from_its_signs(service):  # noqa: F811
    recorder = records_both(service, "--wait", "200ms")
    control("unplug", "camera=0")
    try:
        assert [recorder.hears() for _ in range(50)] == 50 * [ALIVE]
    finally:
        control("plug", "camera=0")
