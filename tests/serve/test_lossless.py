"""Both images of every frame by SRT: byte for byte those that the camera sent."""

import json
import os
import shutil
import socket
import subprocess

import gi
import pytest

gi.require_version("Gst", "1.0")
from gi.repository import Gst

from serving import control, run, wait_until

Gst.init(None)
PASSPHRASE = "what only both sides know"


SERIAL = "ZR2026000200000001"
MOST = 16  # receivers


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


@pytest.fixture
def serve_lossless(serve):
    """The server and the port of the stream, which others may take before the server does."""

    def start(*options):
        while True:
            port = free_port()
            try:
                return serve("--srt", f"{SERIAL}@{port}", *options), port
            except AssertionError as refusal:
                if f"port {port} cannot be listened on by SRT" not in str(refusal):
                    raise

    return start


@pytest.fixture
def passphrase_file(tmp_path):
    path = tmp_path / "passphrase"
    path.write_text(PASSPHRASE + "\n")
    path.chmod(0o600)
    return path


class Receiver:
    """Images by their time, of as many tracks as there are."""

    def __init__(self, description):
        self.pipeline = Gst.parse_launch(description)
        self.images = {"a": {}, "b": {}}
        self.pipeline.set_state(Gst.State.PLAYING)

    def pairs(self):
        """Image A and B of each frame that has come with both."""
        for name, images in self.images.items():
            sink = self.pipeline.get_by_name(name)
            while sample := sink.emit("try-pull-sample", 0):
                buffer = sample.get_buffer()
                images[buffer.pts] = buffer.extract_dup(0, buffer.get_size())
        a, b = self.images.values()
        return [(a[time], b[time]) for time in sorted(a) if time in b]

    def end(self):
        self.pipeline.set_state(Gst.State.NULL)


class Sink:
    """Takes what comes by SRT and keeps nothing of it."""

    def __init__(self, port):
        self.pipeline = Gst.parse_launch(
            f"srtsrc uri=srt://127.0.0.1:{port} auto-reconnect=false ! fakesink sync=false")
        self.pipeline.set_state(Gst.State.PLAYING)

    def end(self):
        self.pipeline.set_state(Gst.State.NULL)


def srt_receiver(port, passphrase=PASSPHRASE):
    tracks = " ".join(
        f"tracks.video_{number} ! queue max-size-bytes=0 ! avdec_ffv1 ! appsink name={name} sync=false"
        for number, name in enumerate("ab"))
    secret = f'passphrase="{passphrase}"' if passphrase else ""
    return Receiver(f"srtsrc uri=srt://127.0.0.1:{port} {secret} latency=2000 ! "
                    f"matroskademux name=tracks {tracks}")


def sent_frames():
    answer = subprocess.run([os.environ["ZRNSIM_CTL"], "frames", "since=0"],
                            check=True, capture_output=True, text=True)
    return json.loads(answer.stdout)["frames"]


def sent_pairs(first, count):
    """The images under those numbers, once more and straight from the camera, and how many of them
    were lost this time."""
    control("frame-number", f"number={first}")
    source = Receiver(
        f"zrnsrc num-buffers={count} queue-policy=block name=camera "
        "camera.src_a ! queue max-size-buffers=0 max-size-bytes=0 ! appsink name=a sync=false "
        "camera.src_b ! queue max-size-buffers=0 max-size-bytes=0 ! appsink name=b sync=false")
    wait_until(lambda: len(source.pairs()) == count)
    pairs = source.pairs()
    lost = source.pipeline.get_by_name("camera").get_property("statistics")
    missing = sum(lost.get_uint64(f"lost-{place}")[1] for place in ("camera", "library", "ring"))
    source.end()
    return set(pairs), missing


def test_images_arrive_as_they_were_sent(serve_lossless, passphrase_file):
    server, port = serve_lossless("--srt-passphrase-file", passphrase_file)
    server.camera()
    before = len(sent_frames())
    receivers = [srt_receiver(port)]
    wait_until(lambda: len(receivers[0].pairs()) >= 5)
    receivers.append(srt_receiver(port))  # joins the stream that runs
    stranger = srt_receiver(port, "what nobody knows of")
    wait_until(lambda: len(receivers[1].pairs()) >= 5)
    received = [receiver.pairs() for receiver in receivers]
    assert stranger.pairs() == []
    for receiver in [stranger, *receivers]:
        receiver.end()
    wait_until(lambda: not server.camera()["open"])
    assert server.metric("zrn_camera_openings_total") == 1
    assert server.end() == 0
    numbers = [frame["frameNumber"] for frame in sent_frames()[before:]]
    sent, missing = sent_pairs(numbers[0], len(numbers))
    for pairs in received:
        assert len(set(pairs) - sent) <= missing
        assert len(set(pairs)) == len(pairs)


@pytest.mark.skipif(not shutil.which("cvlc"), reason="no VLC")
def test_vlc_shows_the_pictures(serve_lossless, passphrase_file, tmp_path):
    server, port = serve_lossless("--srt-passphrase-file", passphrase_file)
    server.camera()
    # VLC does not run as root.
    user = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"] if os.getuid() == 0 else []
    with open(tmp_path / "log", "w", encoding="utf-8") as log:
        client = subprocess.Popen(
            [*user, "cvlc", "-vv", "--intf", "dummy", "--no-audio", "--vout", "dummy", f"--passphrase={PASSPHRASE}",
             f"srt://127.0.0.1:{port}"], stdout=log, stderr=log,
            env={key: value for key, value in os.environ.items() if key not in ("LD_PRELOAD", "HOME")})
    try:
        wait_until(lambda: "Received first picture" in (tmp_path / "log").read_text(errors="replace"))
    finally:
        client.kill()
        client.wait()
    assert "FFV1" in (tmp_path / "log").read_text(errors="replace")


def lossless(server):
    return next(camera["streams"]["lossless"] for camera in json.loads(server.get(""))["cameras"]
                if camera["serial"] == SERIAL)


def sinks(server, port, count):
    """One after the other: SRT keeps none waiting."""
    receivers = []
    while len(receivers) < count:
        receivers.append(Sink(port))
        wait_until(lambda: lossless(server)["viewers"] == len(receivers))
    return receivers


def test_receivers_are_told_and_not_too_many(serve_lossless):
    server, port = serve_lossless()
    assert lossless(server) == {"address": f"srt://127.0.0.1:{port}", "viewers": 0, "receivers": []}
    receivers = sinks(server, port, MOST)
    one_more = Sink(port)
    wait_until(lambda: f"refused, there are {MOST} receivers of {SERIAL} already" in server.log)
    wait_until(lambda: all(receiver["sent"] for receiver in lossless(server)["receivers"]))
    assert server.metric("zrn_viewers", serial=SERIAL, stream="lossless") == MOST
    name = lossless(server)["receivers"][0]["client"]
    assert f"{name}: connected to {SERIAL} by SRT" in server.log
    for receiver in [one_more, *receivers]:
        receiver.end()
    wait_until(lambda: not server.camera()["open"])
    wait_until(lambda: f"{name}: disconnected from {SERIAL} by SRT" in server.log)
    assert server.metric("zrn_viewers", serial=SERIAL, stream="lossless") == 0
    assert server.metric("zrn_lossless_failures_total", serial=SERIAL) == 0


def test_receivers_that_leave_while_the_camera_is_away_leave_nothing(serve_lossless):
    server, port = serve_lossless()
    server.camera()
    control("unplug", "camera=0")
    try:
        for _ in range(2):
            wait_until(lambda: not json.loads(server.get(""))["cameras"][0]["present"])
            for receiver in sinks(server, port, MOST):
                receiver.end()
            wait_until(lambda: lossless(server)["viewers"] == 0)
    finally:
        control("plug", "camera=0")
    receiver = srt_receiver(port, None)
    wait_until(lambda: len(receiver.pairs()) >= 5)
    receiver.end()
    assert ": refused" not in server.log


def test_the_network_needs_a_passphrase(files, passphrase_file):
    users, pem = files
    options = ["--listen", "0.0.0.0", "--users", users, "--certificate", pem, "--srt", "A@7000"]
    refused = run(*options)
    assert refused.returncode == 2
    assert "--srt-passphrase-file FILE" in refused.stderr
    passphrase_file.write_text("short\n")
    refused = run(*options, "--srt-passphrase-file", passphrase_file)
    assert refused.returncode == 2
    assert "10 to 79 characters" in refused.stderr
    passphrase_file.chmod(0o644)
    refused = run(*options, "--srt-passphrase-file", passphrase_file)
    assert f"chmod o= {passphrase_file}" in refused.stderr


@pytest.mark.parametrize("what", ["A", "@7000", "A@0", "A@70000", "A@7000x"])
def test_what_is_sent_and_where_must_be_clear(what):
    refused = run("--srt", what)
    assert refused.returncode == 2
    assert "SERIAL@PORT" in refused.stderr
