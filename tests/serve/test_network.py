"""Cameras of several machines over a link that loses 1 % of all packets and delays each by 20 ms."""

import csv
import json
import os
import re
import signal
import subprocess
import threading
import time

import machines
import pytest

REASON = machines.reason_against()
pytestmark = pytest.mark.skipif(bool(REASON), reason=f"no network namespaces: {REASON}")
PATIENCE = 100  # seconds; nothing is measured by it
CAMERA = "type2,sizes=160x120,rates=30,rate=30"

# As a service manager does: what is killed is started again.
KEPT = """while :; do
    "$@" & echo $! >pid
    wait $!; status=$?
    [ $status -eq 137 ] || exit $status
done"""


def wait_until(condition):
    end = time.monotonic() + PATIENCE
    while not (value := condition()):
        assert time.monotonic() < end, "in vain"
        time.sleep(0.1)
    return value


@pytest.fixture
def network():
    made = []

    def make(*names, **options):
        made.append(machines.Network(*names, **options))
        return made[-1]

    yield make
    for one in made:
        one.end()


class Kept:
    """A program beside a virtual camera on a machine, which is started again when it is killed."""

    def __init__(self, machine, folder, *command, camera=CAMERA):
        self.machine, self.folder = machine, folder
        folder.mkdir(exist_ok=True)
        self.log = open(folder / "log", "w", encoding="utf-8")
        self.process = machine.start(os.environ["ZRNSIM"], "--camera", camera, "--", "sh", "-c", KEPT, "sh", *command,
                                     folder=folder, stdout=self.log, stderr=self.log)

    def said(self):
        return (self.folder / "log").read_text(errors="replace")

    def signal(self, number):
        os.kill(int(wait_until(lambda: (self.folder / "pid").exists() and (self.folder / "pid").read_text())), number)

    def end(self):
        self.signal(signal.SIGTERM)
        return self.process.wait(PATIENCE)


@pytest.fixture
def serve(tmp_path):
    """zrnserve for others, with a certificate that its machine's address is in and that the other machines trust."""
    users = tmp_path / "users"
    users.write_text("anna:right\n")
    users.chmod(0o600)

    def start(machine, *viewers):
        key, certificate = tmp_path / "key.pem", tmp_path / "server.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                        "-days", "2", "-subj", "/CN=camera", "-addext", f"subjectAltName=IP:{machine.address}",
                        "-keyout", key, "-out", certificate], check=True, capture_output=True)
        key.chmod(0o600)
        for viewer in viewers:
            viewer.run("mount", "--bind", certificate, "/etc/ssl/certs/ca-certificates.crt")
        server = Kept(machine, tmp_path / "server", os.environ["ZRNSERVE"], "--listen", machine.address, "--users", users,
                      "--certificate", certificate, "--key", key)
        serial = wait_until(lambda: re.search(r'"serial": ?"(\w+)"', get(viewers[0], machine)))[1]
        server.address = f"rtsps://anna:right@{machine.address}:8554/{serial}/ab"
        return server

    return start


def get(viewer, machine, page=""):
    return viewer.run("curl", "--silent", "--user", "anna:right", f"https://{machine.address}:8555/{page}", check=False,
                      stdout=subprocess.PIPE, text=True).stdout


def frames(viewer, machine):
    found = re.search(r"^zrn_frames_total\{.*\} (\d+)", get(viewer, machine, "metrics"), re.MULTILINE)
    return int(found[1]) if found else 0


def ffmpeg(viewer, address, count=10):
    """Whether so many pictures came."""
    return viewer.run("timeout", PATIENCE, "ffmpeg", "-v", "fatal", "-rtsp_transport", "tcp", "-i", address, "-frames:v",
                      count, "-f", "null", "-", check=False, stdin=subprocess.DEVNULL).returncode == 0


def test_the_link_loses_and_delays(network):
    both = network("one", "two")
    echo = both.one.start("/usr/bin/python3", "-c", """
import socket
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
s.bind(("", 5000))
s.setsockopt(socket.SOL_SOCKET, 33, 1 << 22)  # SO_RCVBUFFORCE
print(flush=True)
while True:
    s.sendto(*s.recvfrom(100))""", stdout=subprocess.PIPE)
    echo.stdout.readline()
    count, soonest = both.two.run("/usr/bin/python3", "-c", f"""
import socket, time
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
s.setsockopt(socket.SOL_SOCKET, 33, 1 << 22)  # SO_RCVBUFFORCE
s.settimeout(5)
times = []
for number in range(2000):
    s.sendto(str(time.monotonic_ns()).encode(), ("{both.one.address}", 5000))
    time.sleep(0.0005)
try:
    while len(times) < 2000:
        sent = int(s.recv(100))
        times.append(time.monotonic_ns() - sent)
except TimeoutError:
    pass
print(len(times), min(times))""", stdout=subprocess.PIPE, text=True).stdout.split()
    assert 1900 <= int(count) < 2000
    assert int(soonest) >= 40_000_000


def test_clients_of_others_look_from_another_machine(network, serve):
    both = network("camera", "viewer")
    address = serve(both.camera, both.viewer).address
    told = both.viewer.run("ffprobe", "-v", "error", "-rtsp_transport", "tcp", "-show_entries",
                           "stream=codec_name,width,height", "-of", "csv=p=0", address, stdout=subprocess.PIPE,
                           text=True, timeout=PATIENCE).stdout
    assert told.strip() == "h264,320,120"
    times = both.viewer.run("ffprobe", "-v", "error", "-rtsp_transport", "tcp", "-show_entries", "packet=pts", "-of",
                            "csv=p=0", "-read_intervals", "%+#10", address, stdout=subprocess.PIPE, text=True,
                            timeout=PATIENCE).stdout.split()
    assert len(set(times)) == len(times)  # one packet for each picture
    assert ffmpeg(both.viewer, address)
    both.viewer.run("gst-launch-1.0", "-q", "rtspsrc", f"location={address}", "!", "rtph264depay", "!", "avdec_h264", "!",
                    "fakesink", "num-buffers=10", timeout=PATIENCE)
    player = both.viewer.start("gst-play-1.0", "--no-interactive", "--videosink=fakevideosink", address,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    said = b""
    while not re.search(rb"0:00:0[1-9]", said):
        part = os.read(player.stdout.fileno(), 4096)
        assert part, said.decode()
        said += part


def test_a_server_that_is_killed_serves_again(network, serve):
    both = network("camera", "viewer")
    server = serve(both.camera, both.viewer)
    assert ffmpeg(both.viewer, server.address)
    looking = threading.Thread(target=ffmpeg, args=(both.viewer, server.address, 10_000))
    looking.start()
    wait_until(lambda: 'viewers": 1' in get(both.viewer, both.camera).replace(":1", ": 1"))
    server.signal(signal.SIGKILL)
    looking.join(PATIENCE)
    assert not looking.is_alive()
    wait_until(lambda: ffmpeg(both.viewer, server.address))
    assert server.end() == 0


def test_a_machine_that_vanishes_costs_the_others_nothing(network, serve):
    all_three = network("camera", "viewer", "vanishing")
    server = serve(all_three.camera, all_three.viewer, all_three.vanishing)
    gone = all_three.vanishing.start("ffmpeg", "-v", "error", "-rtsp_transport", "tcp", "-i", server.address, "-f", "null",
                                     "-", stdin=subprocess.DEVNULL)
    wait_until(lambda: frames(all_three.viewer, all_three.camera))
    all_three.vanishing.run("ip", "link", "set", "eth0", "down")
    assert ffmpeg(all_three.viewer, server.address)
    all_three.vanishing.kill(gone)
    all_three.vanishing.run("ip", "link", "set", "eth0", "up")
    assert ffmpeg(all_three.vanishing, server.address)
    assert server.end() == 0


class Collector:
    """Fetches what machines have recorded, over and over, as `rsync` does by ssh elsewhere."""

    def __init__(self, machine, folder, sources):
        self.machine, self.folder, self.sources = machine, folder, sources
        folder.mkdir()

    def command(self, name):
        return ["rsync", "--archive", "--inplace", "--timeout=20", f"rsync://{self.sources[name].address}:8730/recordings/",
                f"{self.folder}/{name}/"]

    def fetch(self):
        """Until nothing is missing."""
        for name in self.sources:
            wait_until(lambda: self.machine.run(*self.command(name), check=False, stderr=subprocess.DEVNULL).returncode == 0)


def test_recordings_of_two_machines_are_collected_whole(network, tmp_path):
    three = network("left", "right", "collector")
    recorders = {}
    for name in ("left", "right"):
        machine = three.machines[name]
        config = tmp_path / f"{name}.conf"
        config.write_text(f"use chroot = no\nuid = 0\ngid = 0\n[recordings]\npath = {tmp_path / name}\nread only = yes\n"
                          "exclude = log pid\n")
        recorders[name] = Kept(
            machine, tmp_path / name, os.environ["ZRNCAM"], "record", "--quiet", "--segment", "3s",
            camera=f"{CAMERA},serial={'17' if name == 'left' else '42'}")
        machine.start("rsync", "--daemon", "--no-detach", "--port=8730", f"--config={config}", stdin=subprocess.DEVNULL)
    collector = Collector(three.collector, tmp_path / "collected", {name: three.machines[name] for name in recorders})
    for recorder in recorders.values():
        wait_until(lambda: len(list(recorder.folder.glob("*_002.zrnrec"))) == 1)

    # The collector is killed at work, a machine vanishes, a recorder is killed: each goes on where it was.
    killed = three.collector.start(*collector.command("left"), stdout=subprocess.DEVNULL)
    wait_until(lambda: (collector.folder / "left").exists() or killed.poll() is not None)
    three.collector.kill(killed)
    three.cut()
    wait_until(lambda: list(recorders["right"].folder.glob("*_003.zrnrec")))
    recorders["left"].signal(signal.SIGKILL)
    wait_until(lambda: list(recorders["left"].folder.glob("recording_0002_*_001.zrnrec")))
    three.mend()
    collector.fetch()
    wait_until(lambda: list(recorders["left"].folder.glob("recording_0002_*_002.zrnrec")))
    for recorder in recorders.values():
        assert recorder.end() == 130, recorder.said()
    collector.fetch()

    files = {name: sorted(recorder.folder.glob("*.zrnrec")) for name, recorder in recorders.items()}
    for name, originals in files.items():
        for original in originals:
            assert (collector.folder / name / original.name).read_bytes() == original.read_bytes()
    recordings = [path for name in recorders for path in sorted((collector.folder / name).glob("*.zrnrec"))]
    told = json.loads(subprocess.run([os.environ["ZRNREC"], "pair", *recordings, "-o", tmp_path / "pairs.csv"], check=True,
                                     stdout=subprocess.PIPE, text=True).stdout)
    left, right = told["cameras"]
    assert len(left["files"]) == len(files["left"]) and len(right["files"]) == len(files["right"])
    # Each frame of the files is in the table.
    for camera in (left, right):
        assert camera["frames"] > 0 and camera["undated"] == 0
        assert camera["paired"] + camera["unpaired"] == camera["frames"]
    assert told["complete"] > 0
    with open(tmp_path / "pairs.csv", newline="") as table:
        rows = list(csv.DictReader(table))
    for camera in (left, right):
        assert sum(bool(row[camera["serial"] + " file"]) for row in rows) == camera["frames"]
