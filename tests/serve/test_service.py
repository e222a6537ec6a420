"""What a service manager hears of zrnserve and of zrncam record."""

import contextlib
import os
import signal
import socket
import subprocess
import time

import pytest

PATIENCE = 60  # seconds; nothing is measured by it
SILENCE = 1.5  # seconds without a sign, of which there are ten each second otherwise
ALIVE = "WATCHDOG=1"


def control(*command):
    subprocess.run([os.environ["ZRNSIM_CTL"], *command], check=True, stdout=subprocess.DEVNULL)


class Service:
    def __init__(self, folder, *command):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(str(folder / "notify"))
        self.socket.settimeout(PATIENCE)
        self.process = subprocess.Popen(
            command, cwd=folder, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            env={**os.environ, "NOTIFY_SOCKET": str(folder / "notify"), "WATCHDOG_USEC": "400000"})

        self.said = []

    def hears(self):
        return self.said.pop(0) if self.said else self.socket.recv(4096).decode()

    def end(self):
        """Listens meanwhile: the socket holds a few signs only, and who gives more waits."""
        self.process.send_signal(signal.SIGTERM)
        self.socket.settimeout(0.1)
        deadline = time.monotonic() + PATIENCE
        while self.process.poll() is None and time.monotonic() < deadline:
            with contextlib.suppress(TimeoutError):
                self.said.append(self.socket.recv(4096).decode())
        self.socket.settimeout(PATIENCE)
        return self.process.wait(0)


@pytest.fixture
def service(tmp_path):
    started = []

    def start(*command):
        started.append(Service(tmp_path, *command))
        return started[-1]

    yield start
    for one in started:
        one.process.kill()
        one.process.wait()


def test_the_server_gives_signs_of_life_until_it_ends(service):
    server = service(os.environ["ZRNSERVE"], "--port", "0", "--http-port", "0")
    assert [server.hears() for _ in range(5)] == ["READY=1"] + 4 * [ALIVE]
    assert server.end() == 0
    while (said := server.hears()) == ALIVE:
        pass
    assert said == "STOPPING=1"


def record(*options):
    return (os.environ["ZRNCAM"], "record", "--quiet", *options)


def test_a_recorder_whose_camera_sends_nothing_gives_no_sign(service):
    recorder = service(*record("--wait", "30s"))
    assert [recorder.hears() for _ in range(5)] == ["READY=1"] + 4 * [ALIVE]
    control("freeze", "camera=0")
    try:
        recorder.socket.settimeout(SILENCE)
        with pytest.raises(TimeoutError):
            for _ in range(200):
                recorder.hears()
    finally:
        control("thaw", "camera=0")
    recorder.socket.settimeout(PATIENCE)
    assert recorder.hears() == ALIVE
    assert recorder.end() == 130


def test_a_camera_that_is_known_to_be_out_is_no_failure(service):
    recorder = service(*record("--wait", "200ms"))
    assert recorder.hears() == "READY=1"
    control("unplug", "camera=0")
    try:
        assert [recorder.hears() for _ in range(50)] == 50 * [ALIVE]
    finally:
        control("plug", "camera=0")
    assert recorder.end() in (6, 130)  # perhaps before a frame has come
