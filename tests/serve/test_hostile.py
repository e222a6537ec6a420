"""Clients that want harm: crowds of connections, and requests that are none."""

import contextlib
import ctypes
import os
import re
import socket
import time
from random import Random

import pytest

from serving import PATIENCE, Rtsp, look, sees, wait_until

CONNECTIONS = int(os.environ.get("ZRNSERVE_CONNECTIONS", "200"))
FUZZ_SECONDS = float(os.environ.get("ZRNSERVE_FUZZ_SECONDS", "3"))
SEED = int(os.environ.get("ZRNSERVE_SEED", "1"))
BEGINNINGS = (b"", b"DESC", b"GET / HTTP/1.1\r\nHost: x\r\n", b"\x16\x03\x01\x02\x00\x01\x00",
              b"$\x00\xff\xff")
MEBIBYTE = 1024  # of what the kernel counts in kibibytes


def http_port(server):
    return int(re.search(r":(\d+)/", server.http)[1])


def connections(server, count, addresses):
    """Half of them for each port, from those addresses in turn; none ends what it begins."""
    with contextlib.ExitStack() as stack:
        opened = []
        for number in range(count):
            port = server.rtsp_port if number % 2 else http_port(server)
            connection = stack.enter_context(socket.create_connection(
                ("127.0.0.1", port), PATIENCE, (addresses[number // 2 % len(addresses)], 0)))
            with contextlib.suppress(ConnectionError):
                connection.sendall(BEGINNINGS[number // 2 % len(BEGINNINGS)])
            opened.append(connection)
        stack.pop_all()
        return opened


@pytest.mark.parametrize("encrypted", [False, True])
def test_a_crowd_of_one_address_takes_no_other_client_its_place(serve, files, encrypted):
    users, pem = files
    server = serve(*(["--users", users, "--certificate", pem] if encrypted else []))
    login = {"user_id": "anna", "user_pw": "right", "tls_validation_flags": 0} if encrypted else {}
    server.credentials = "anna:right" if encrypted else None
    sees(server, look(server.address("a"), 2, **login))
    wait_until(lambda: not server.camera()["open"])
    before = server.files()
    memory = server.status("VmHWM")
    crowd = connections(server, CONNECTIONS, ["127.0.0.2"])
    try:
        # Those that are refused are closed, and the rest is one address's share of either port.
        wait_until(lambda: server.files() <= before + 2 * 32 + 16)
        wait_until(lambda: re.search(
            r"^zrnserve: 127\.0\.0\.2:\d+: refused, there are 32 clients of its address",
            server.log, re.MULTILINE))
        sees(server, look(server.address("a"), 5, **login))
    finally:
        for connection in crowd:
            connection.close()
    wait_until(lambda: server.files() <= before + 8)
    # That of those who are let in: GnuTLS takes some mebibytes for each that it waits for.
    assert server.status("VmHWM") - memory < (512 if encrypted else 64) * MEBIBYTE
    assert "CRITICAL" not in server.log


def test_a_crowd_of_many_addresses_is_limited(serve):
    server = serve()
    server.camera()
    before = server.files()
    crowd = connections(server, CONNECTIONS, [f"127.0.0.{n}" for n in range(2, 50)])
    try:
        wait_until(lambda: server.files() <= before + 2 * 64 + 16)
        wait_until(lambda: "refused, there are 64 clients already" in server.log)
    finally:
        for connection in crowd:
            connection.close()
    wait_until(lambda: server.files() <= before + 8)
    sees(server, look(server.address("a"), 2))


def set_up(client):
    return client.request("SETUP", client.address + "/stream=0",
                          Transport="RTP/AVP/TCP;unicast;interleaved=0-1")[0]


def test_one_client_has_few_sessions(serve):
    server = serve("--jpeg")
    client = Rtsp(server)
    assert [set_up(client) for _ in range(6)] == [200] * 4 + [503] * 2
    wait_until(lambda: "refused, it has 4 sessions already" in server.log)
    assert set_up(Rtsp(server)) == 200


def test_sessions_end_with_their_client(serve):
    server = serve("--jpeg", "--max-clients", "2")  # room for eight sessions
    for _ in range(10):
        wait_until(lambda: server.clients() == 0)
        client = Rtsp(server)
        assert set_up(client) == 200
        client.close()


class Opens:
    """Which files of a folder anybody opens, makes or changes, as the kernel tells."""

    EVENTS = 0x20 | 0x2 | 0x100 | 0x40 | 0x80 | 0x200  # open, modify, create, move, delete

    def __init__(self, folder):
        libc = ctypes.CDLL(None, use_errno=True)
        self.descriptor = libc.inotify_init1(os.O_NONBLOCK)
        assert libc.inotify_add_watch(self.descriptor, os.fsencode(folder), self.EVENTS) >= 0

    def seen(self):
        try:
            return os.read(self.descriptor, 1 << 16)
        except BlockingIOError:
            return b""
        finally:
            os.close(self.descriptor)


def requests_for(stream, canary):
    """What clients say, and what only those say that want more than pictures."""
    rtsp = []
    for method in ("OPTIONS", "DESCRIBE", "SETUP", "PLAY", "PAUSE", "TEARDOWN", "GET_PARAMETER",
                   "SET_PARAMETER", "ANNOUNCE", "RECORD"):
        for address in (stream, stream + "/stream=0", "rtsp://x/../../.." + canary, "*"):
            rtsp.append(f"{method} {address} RTSP/1.0\r\nCSeq: 1\r\nSession: 1\r\n"
                        "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\nRange: npt=0-\r\n"
                        "Content-Length: 5\r\n\r\nv=0\r\n")
    rtsp += ["GET / HTTP/1.0\r\nx-sessioncookie: a\r\nAccept: application/x-rtsp-tunnelled\r\n\r\n",
             "POST / HTTP/1.0\r\nx-sessioncookie: a\r\nContent-Length: 99\r\n\r\nT1BUSU9OUw==",
             "$\x00\x00\x08" + 8 * "\x81"]
    http = [f"{method} {path} HTTP/1.1\r\nHost: x\r\n{header}\r\n\r\n"
            for method in ("GET", "HEAD", "POST", "PUT", "DELETE")
            for path in ("/", "/metrics", canary, "/.." + canary, "/%2e%2e" + canary,
                         "file://" + canary, "//" + canary)
            for header in ("Range: bytes=0-", "Transfer-Encoding: chunked", "Content-Length: -1",
                           "Upgrade: websocket", "Expect: 100-continue")]
    return [text.encode("latin-1") for text in rtsp], [text.encode("latin-1") for text in http]


def mutated(random, text):
    """Mostly with a few faults, and sometimes as it is."""
    bytes_ = bytearray(text)
    for _ in range(random.choice((0, 1, 1, 2, 8))):
        place = random.randrange(len(bytes_) + 1)
        end = min(len(bytes_), place + random.randrange(1, 16))
        fault = random.randrange(5)
        if fault == 0:
            bytes_[place:end] = random.randbytes(end - place)
        elif fault == 1:
            del bytes_[place:end]
        elif fault == 2:
            bytes_[place:place] = bytes_[place:end] * random.choice((1, 2, 100, 5000))
        elif fault == 3:
            bytes_[place:place] = random.choice(
                (b"\r\n", b"\r\n\r\n", b"\0", b"-1", b"99999999999999999999", b"%n", b"\xff" * 9))
        else:
            del bytes_[place:]
    return bytes(bytes_)


def answer_to(port, texts):
    """All that comes back until the server has nothing more to say or closes."""
    answer = b""
    with socket.create_connection(("127.0.0.1", port), PATIENCE, ("127.0.0.2", 0)) as connection:
        with contextlib.suppress(OSError):
            for text in texts:
                connection.sendall(text)
            connection.shutdown(socket.SHUT_WR)
            connection.settimeout(0.2)
            while len(answer) < 1 << 16 and (part := connection.recv(1 << 14)):
                answer += part
    return answer


@pytest.mark.parametrize("locked", [False, True])
def test_requests_at_random_do_no_harm(serve, files, tmp_path, locked):
    canary = tmp_path / "canary"
    canary.write_text("a secret that nobody asked for by its name\n")
    server = serve("--jpeg", *(["--users", files[0]] if locked else []))
    server.credentials = "anna:right" if locked else None
    login = {"user_id": "anna", "user_pw": "right"} if locked else {}
    stream = server.address("a")
    sees(server, look(stream, 2, "rtpjpegdepay ! jpegdec", **login))
    rtsp, http = requests_for(stream, str(canary))
    opens = Opens(tmp_path)
    memory = server.status("VmHWM")
    random = Random(SEED)
    end = time.monotonic() + FUZZ_SECONDS
    while time.monotonic() < end:
        port, texts = random.choice(((server.rtsp_port, rtsp), (http_port(server), http)))
        answer = answer_to(port, [mutated(random, random.choice(texts))
                                  for _ in range(random.randrange(1, 6))])
        assert server.process.poll() is None, f"seed {SEED}\n{server.log}"
        assert b"secret" not in answer and b"right" not in answer
        if locked:
            assert not re.search(rb"^(RTSP/1.0 200.*\r\n(.*\r\n)*Content-|HTTP/1.1 200)", answer,
                                 re.MULTILINE), answer
    assert opens.seen() == b""
    assert server.status("VmHWM") - memory < 64 * MEBIBYTE
    sees(server, look(stream, 2, "rtpjpegdepay ! jpegdec", **login))
