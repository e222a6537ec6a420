"""zrnserve on a virtual camera, looked at by clients that know nothing of it."""

import base64
import json
import os
import re
import signal
import socket
import ssl
import subprocess
import threading
import time
import urllib.error
import urllib.request

import pytest

PROGRAM = os.environ["ZRNSERVE"]
PATIENCE = 60  # seconds; nothing is measured by it


def wait_until(condition):
    end = time.monotonic() + PATIENCE
    while not (value := condition()):
        assert time.monotonic() < end, "in vain"
        time.sleep(0.05)
    return value


class Server:
    """The program, its log and its pages."""

    def __init__(self, *options):
        self.log = ""
        self.credentials = None
        self.process = subprocess.Popen(
            [PROGRAM, "--port", "0", "--http-port", "0", *options],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        first = self.process.stdout.readline()
        assert first, self.process.stderr.read()
        self.rtsp_port = int(re.search(r":(\d+)/", first)[1])
        self.http = self.process.stdout.readline().strip()
        self.reader = threading.Thread(target=self._read)
        self.reader.start()

    def _read(self):
        for line in self.process.stderr:
            self.log += line

    def get(self, path):
        request = urllib.request.Request(self.http + path)
        if self.credentials:
            request.add_header(
                "Authorization", "Basic " + base64.b64encode(self.credentials.encode()).decode())
        context = ssl._create_unverified_context() if self.http.startswith("https") else None
        with urllib.request.urlopen(request, timeout=PATIENCE, context=context) as answer:
            return answer.read().decode()

    def camera(self):
        """The camera on the list, once it is there."""
        return wait_until(lambda: next(
            (c for c in json.loads(self.get(""))["cameras"] if c["present"]), None))

    def address(self, stream):
        return self.camera()["streams"][stream]["address"]

    def metric(self, name, **labels):
        for line in self.get("metrics").splitlines():
            parts = re.fullmatch(r"(\w+)(?:\{(.*)\})? (\S+)", line)
            if parts and parts[1] == name:
                found = dict(re.findall(r'(\w+)="([^"]*)"', parts[2] or ""))
                if all(found.get(key) == value for key, value in labels.items()):
                    return float(parts[3])
        return None

    def status(self, name):
        """A number of the kernel's on the process."""
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as file:
            return int(re.search(rf"^{name}:\s+(\d+)", file.read(), re.MULTILINE)[1])

    def threads(self, name):
        count = 0
        for thread in os.scandir(f"/proc/{self.process.pid}/task"):
            try:
                with open(thread.path + "/comm", encoding="ascii") as file:
                    count += file.read().strip() == name
            except OSError:
                pass  # has ended meanwhile
        return count

    def end(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        code = self.process.wait(PATIENCE)
        self.reader.join()
        return code


@pytest.fixture
def serve():
    servers = []

    def start(*options):
        servers.append(Server(*options))
        return servers[-1]

    yield start
    for server in servers:
        code = server.end()
        print(server.log)
        assert code == 0


def look(address, count=None, decoder="rtph264depay ! avdec_h264", **properties):
    """A client that is not ours: it ends after that many pictures, or when it is stopped."""
    settings = [f"{key.replace('_', '-')}={value}" for key, value in properties.items()]
    sink = ["fakesink", "sync=false"] + ([f"num-buffers={count}"] if count else [])
    return subprocess.Popen(
        ["gst-launch-1.0", "-q", "rtspsrc", f"location={address}", *settings, "!",
         *decoder.split(), "!", *sink], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


def sees(server, client):
    output, _ = client.communicate(timeout=PATIENCE)
    assert client.returncode == 0, output + server.log


def stop(clients):
    for client in clients:
        client.terminate()
        client.communicate()


class Rtsp:
    """A connection whose requests and pauses the test chooses."""

    def __init__(self, server, receive_buffer=None):
        self.address = server.address("a")
        self.sequence = 0
        self.socket = socket.socket()
        if receive_buffer:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        self.socket.settimeout(PATIENCE)
        self.socket.connect(("127.0.0.1", server.rtsp_port))
        self.file = self.socket.makefile("rb")

    def send(self, method, address=None, **headers):
        self.sequence += 1
        lines = [f"{method} {address or self.address} RTSP/1.0", f"CSeq: {self.sequence}"]
        lines += [f"{name}: {value}" for name, value in headers.items()]
        self.socket.sendall(("\r\n".join(lines) + "\r\n\r\n").encode())

    def request(self, method, address=None, **headers):
        self.send(method, address, **headers)
        status = int(self.file.readline().split()[1])
        answer = {}
        while line := self.file.readline().decode().strip():
            name, value = line.split(":", 1)
            answer[name] = value.strip()
        answer["body"] = self.file.read(int(answer.get("Content-Length", 0))).decode()
        return status, answer


def control(*command):
    subprocess.run([os.environ["ZRNSIM_CTL"], *command], check=True, stdout=subprocess.DEVNULL)


def test_pictures_of_each_view_arrive(serve):
    server = serve()
    for stream, width in (("a", 320), ("b", 320), ("ab", 640)):
        sees(server, look(server.address(stream), 5,
                          f"rtph264depay ! avdec_h264 ! video/x-raw,width={width},height=240"))


def test_pictures_come_as_jpeg(serve):
    server = serve("--jpeg")
    sees(server, look(server.address("ab"), 5,
                      "rtpjpegdepay ! jpegdec ! video/x-raw,width=640,height=240"))


def test_a_camera_is_opened_once_and_closed_with_the_last_client(serve):
    server = serve()
    streams = ("a", "a", "b", "ab")
    clients = [look(server.address(stream)) for stream in streams]
    wait_until(lambda: server.metric("zrn_viewers", stream="a") == 2
               and server.metric("zrn_viewers", stream="b") == 1
               and server.metric("zrn_viewers", stream="ab") == 1)
    assert server.camera()["open"]
    stop(clients[:3])
    wait_until(lambda: server.metric("zrn_viewers", stream="b") == 0)
    assert server.camera()["open"]
    stop(clients[3:])
    wait_until(lambda: not server.camera()["open"])
    assert server.metric("zrn_camera_openings_total") == 1
    assert server.metric("zrn_frames_total") > 0
    assert server.metric("zrn_frame_latency_seconds", quantile="0.5") > 0


def test_an_absent_camera_keeps_its_address(serve):
    server = serve()
    client = look(server.address("a"))
    wait_until(lambda: server.metric("zrn_viewers", stream="a") == 1)
    rtsp = Rtsp(server)
    control("unplug", "camera=0")
    wait_until(lambda: rtsp.request("DESCRIBE")[0] == 404)
    assert server.metric("zrn_camera_present") == 0
    control("plug", "camera=0")
    assert server.address("a") == rtsp.address
    wait_until(lambda: server.metric("zrn_outages_total") >= 1)
    before = server.metric("zrn_frames_total")
    wait_until(lambda: server.metric("zrn_frames_total") > before)
    assert client.poll() is None
    stop([client])
    sees(server, look(server.address("a"), 5))


def test_a_client_that_does_not_read_is_dropped_and_no_other(serve):
    server = serve("--jpeg")
    other = look(server.address("a"), decoder="rtpjpegdepay ! jpegdec")
    slow = Rtsp(server, receive_buffer=4096)
    assert slow.request("DESCRIBE", Accept="application/sdp")[0] == 200
    status, answer = slow.request(
        "SETUP", slow.address + "/stream=0", Transport="RTP/AVP/TCP;unicast;interleaved=0-1")
    assert status == 200
    assert slow.request("PLAY", Session=answer["Session"].split(";")[0])[0] == 200
    port = slow.socket.getsockname()[1]
    wait_until(lambda: f"127.0.0.1:{port}: dropped" in server.log)
    assert server.metric("zrn_clients_dropped_total") >= 1
    wait_until(lambda: f"127.0.0.1:{port}: disconnected" in server.log)
    assert other.poll() is None
    stop([other])


def test_too_many_clients_are_refused(serve):
    server = serve("--max-clients", "1")
    first = Rtsp(server)
    assert first.request("OPTIONS")[0] == 200
    with pytest.raises((IndexError, ConnectionError)):
        Rtsp(server).request("OPTIONS")
    assert first.request("OPTIONS")[0] == 200
    assert "CRITICAL" not in server.log


def test_a_view_is_one_stream_whatever_is_appended(serve):
    server = serve("--jpeg")
    clients = [Rtsp(server) for _ in range(3)]
    for client, end in zip(clients, ("", "?1", "?2")):
        assert client.request("DESCRIBE", client.address + end)[0] == 200
    assert server.threads("images:src") == 1


def test_unknown_addresses_and_methods_are_refused(serve):
    server = serve()
    rtsp = Rtsp(server)
    assert rtsp.request("DESCRIBE", rtsp.address.replace("/a", "/c"))[0] == 404
    for path in ("c", "../../etc/passwd"):
        with pytest.raises(urllib.error.HTTPError) as refusal:
            server.get(path)
        assert refusal.value.code == 404


def run(*options):
    return subprocess.run([PROGRAM, "--port", "0", "--http-port", "0", *options],
                          capture_output=True, text=True, timeout=PATIENCE)


@pytest.fixture
def files(tmp_path):
    """Users, and a certificate with its key."""
    users = tmp_path / "users"
    users.write_text("anna:right\n")
    users.chmod(0o600)
    pem = tmp_path / "server.pem"
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj",
                    "/CN=localhost", "-keyout", tmp_path / "key", "-out", tmp_path / "certificate"],
                   check=True, capture_output=True)
    pem.write_text((tmp_path / "certificate").read_text() + (tmp_path / "key").read_text())
    pem.chmod(0o600)
    return users, pem


def test_the_network_needs_users_and_certificate(files):
    users, pem = files
    for options in ([], ["--users", users], ["--certificate", pem]):
        refused = run("--listen", "0.0.0.0", *options)
        assert refused.returncode == 2
        assert "--users FILE and --certificate FILE" in refused.stderr


def test_secrets_that_everybody_may_read_are_refused(files):
    for name, file in zip(("--users", "--certificate"), files):
        file.chmod(0o644)
        refused = run(name, file)
        assert refused.returncode == 2
        assert f"chmod o= {file}" in refused.stderr


def test_only_who_knows_a_password_looks(serve, files):
    users, pem = files
    server = serve("--listen", "0.0.0.0", "--users", users, "--certificate", pem)
    server.http = server.http.replace("0.0.0.0", "127.0.0.1")
    for credentials in (None, "anna:wrong", "otto:right"):
        server.credentials = credentials
        with pytest.raises(urllib.error.HTTPError) as refusal:
            server.get("")
        assert refusal.value.code == 401
    server.credentials = "anna:right"
    address = server.address("a")
    assert address.startswith("rtsps://")
    unchecked = {"tls_validation_flags": 0}
    sees(server, look(address, 5, user_id="anna", user_pw="right", **unchecked))
    for login in ({}, {"user_id": "anna", "user_pw": "wrong"}):
        output, _ = look(address, 5, **login, **unchecked).communicate(timeout=PATIENCE)
        assert "nauthorized" in output or "401" in output
    assert "refused, wrong user or password" in server.log


def test_bodies_are_not_kept(serve, files):
    server = serve("--users", files[0])
    before = server.status("VmHWM")
    mebibyte = b"100000\r\n" + bytes(1 << 20) + b"\r\n"
    with socket.create_connection(("127.0.0.1", int(re.search(r":(\d+)/", server.http)[1])),
                                  PATIENCE) as connection:
        connection.sendall(b"POST / HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n")
        for _ in range(128):
            connection.sendall(mebibyte)
        connection.sendall(b"0\r\n\r\n")
        assert b" 401 " in connection.makefile("rb").readline()
    assert server.status("VmHWM") - before < 64 * 1024


def test_users_may_come_from_a_file_with_carriage_returns(serve, files):
    files[0].write_bytes(b"anna:right\r\n")
    server = serve("--users", files[0])
    server.credentials = "anna:right"
    assert json.loads(server.get(""))["clients"] == 0


def test_a_signal_ends_it_while_somebody_looks(serve):
    server = serve()
    client = look(server.address("ab"))
    wait_until(lambda: server.metric("zrn_viewers", stream="ab") == 1)
    assert server.end() == 0
    assert re.search(r"^zrnserve: \w+: closed$", server.log, re.MULTILINE)
    stop([client])


def test_a_signal_ends_it_while_a_first_frame_is_awaited(serve):
    server = serve()
    rtsp = Rtsp(server)
    control("freeze", "camera=0")
    try:
        rtsp.send("DESCRIBE")
        wait_until(lambda: ": opened" in server.log)
        assert server.end() == 0
    finally:
        control("thaw", "camera=0")
    assert ": closed" in server.log
    assert "sends no frames" not in server.log
