"""The server as a process, and clients that know nothing of it."""

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
import urllib.request

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

    def files(self):
        """How many it has open."""
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def clients(self):
        return json.loads(self.get(""))["clients"]

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


def look(address, count=None, decoder="rtph264depay ! avdec_h264", **properties):
    """A client that is not ours: it ends after that many pictures, or when it is stopped."""
    settings = [f"tcp-timeout={PATIENCE * 10**6}"] + [f"{key.replace('_', '-')}={value}" for key, value in properties.items()]
    counted = ["silent=false", f"num-buffers={count}"] if count else []
    client = subprocess.Popen(
        ["gst-launch-1.0", "-v" if count else "-q", "rtspsrc", f"location={address}", *settings, "!",
         *decoder.split(), "!", "fakesink", "sync=false", *counted],
        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    client.pictures = count
    return client


def sees(server, client):
    """How the client ends does not count: rtspsrc may send its PAUSE after the TEARDOWN at which the server hangs up."""
    output, _ = client.communicate(timeout=PATIENCE)
    assert output.count("last-message = chain") == client.pictures, output + server.log


def stop(clients):
    for client in clients:
        client.terminate()
        client.communicate()


class Rtsp:
    """A connection whose requests and pauses the test chooses."""

    def __init__(self, server, receive_buffer=None, source=None):
        self.address = server.address("a")
        self.sequence = 0
        self.socket = socket.socket()
        if source:
            self.socket.bind((source, 0))
        if receive_buffer:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        self.socket.settimeout(PATIENCE)
        self.socket.connect(("127.0.0.1", server.rtsp_port))
        if self.address.startswith("rtsps:"):
            self.socket = ssl._create_unverified_context().wrap_socket(self.socket)
        self.file = self.socket.makefile("rb")

    def close(self):
        self.file.close()
        self.socket.close()

    @property
    def name(self):
        return f"127.0.0.1:{self.socket.getsockname()[1]}"

    def play(self):
        assert self.request("DESCRIBE", Accept="application/sdp")[0] == 200
        status, answer = self.request(
            "SETUP", self.address + "/stream=0", Transport="RTP/AVP/TCP;unicast;interleaved=0-1")
        assert status == 200
        assert self.request("PLAY", Session=answer["Session"].split(";")[0])[0] == 200

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


def run(*options):
    return subprocess.run([PROGRAM, "--port", "0", "--http-port", "0", *options],
                          capture_output=True, text=True, timeout=PATIENCE)
