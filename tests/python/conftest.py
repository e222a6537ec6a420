"""What the tests share. They run under zrnsim, which gives them virtual cameras."""

import os
import subprocess
import sys
import time

import pytest

import zrncamera


@pytest.fixture
def bus():
    """The cables, all plugged in and without faults at the end."""
    bus = zrncamera.VirtualBus()
    yield bus
    for camera in range(len(bus.command("cameras")["cameras"])):
        try:
            bus.plug(camera)
        except zrncamera.ZrnError:
            pass  # it is plugged in
        bus.command("clear_faults", camera=camera)


@pytest.fixture(autouse=True)
def patience(monkeypatch):
    """A busy machine takes its time for a frame; the tests that wait in vain say for how long."""
    monkeypatch.setattr("zrncamera._stream._SLACK", 30.0)


@pytest.fixture
def camera():
    with zrncamera.open() as opened:
        yield opened


@pytest.fixture
def start(tmp_path):
    """Starts a script in a process of its own, which is ended with the test."""
    processes = []

    def begin(text, *arguments, **options):
        script = tmp_path / f"script{len(processes)}.py"
        script.write_text(text)
        processes.append(
            subprocess.Popen(
                [sys.executable, script, *map(str, arguments)],
                stdout=subprocess.PIPE,
                stdin=subprocess.PIPE,
                text=True,
                **options,
            )
        )
        return processes[-1]

    yield begin
    for process in processes:
        process.kill()
        process.communicate()


@pytest.fixture
def run(start):
    """Runs a script in a process of its own, and returns what it printed."""

    def complete(text, *arguments, **options):
        process = start(text, *arguments, **options)
        output, _ = process.communicate(timeout=60)
        assert process.returncode == 0, output
        return output

    return complete


def wait_until(condition, seconds=20):
    end = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < end
        time.sleep(0.02)


def without_virtual_cameras():
    """The environment of a process that is not started under zrnsim."""
    return {
        name: value
        for name, value in os.environ.items()
        if name not in ("LD_PRELOAD", "ZRNSIM_CONTROL") and not name.startswith("UMOCKDEV")
    }
