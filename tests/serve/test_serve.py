"""zrnserve on a virtual camera, looked at by clients that know nothing of it."""

import base64
import contextlib
import http.client
import json
import re
import socket
import time
import urllib.error

import pytest

from serving import PATIENCE, Rtsp, control, look, run, sees, stop, wait_until


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
    wait_until(lambda: all(c["sent"] for c in json.loads(server.get(""))["connections"]))
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
    assert server.metric("zrn_usb_errors_total", kind="gone") >= 1
    assert server.metric("zrn_usb_errors_total", kind="silent") == 0
    before = server.metric("zrn_frames_total")
    wait_until(lambda: server.metric("zrn_frames_total") > before)
    assert client.poll() is None
    stop([client])
    sees(server, look(server.address("a"), 5))


def test_clients_that_read_nothing_or_too_slowly_are_dropped_and_no_other(serve):
    server = serve("--jpeg")
    other = look(server.address("a"), decoder="rtpjpegdepay ! jpegdec")
    silent, slow = (Rtsp(server, receive_buffer=4096) for _ in range(2))
    silent.play()
    slow.play()
    # A part of what comes, without a pause.
    while slow.socket.recv(1024):
        time.sleep(0.02)
    wait_until(lambda: f"{slow.name}: dropped, it reads more slowly than pictures come"
               in server.log)
    wait_until(lambda: f"{silent.name}: dropped" in server.log)
    assert server.metric("zrn_clients_dropped_total") == 2
    for client in (silent, slow):
        wait_until(lambda: f"{client.name}: disconnected" in server.log)
    assert other.poll() is None
    stop([other])
    assert server.log.count(": dropped") == 2


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


def test_the_network_needs_users_and_certificate(files):
    users, pem = files
    for options in ([], ["--users", users], ["--certificate", pem]):
        refused = run("--listen", "0.0.0.0", *options)
        assert refused.returncode == 2
        assert "--users FILE and --certificate FILE" in refused.stderr


def test_what_other_machines_do_not_reach_is_not_announced():
    refused = run("--announce")
    assert refused.returncode == 2
    assert "--listen" in refused.stderr


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
    wait_until(lambda: not server.camera()["open"])
    before = server.log.count("refused, wrong user or password")
    # What a client prints is its own business, in words of its user's language.
    for login in ({}, {"user_id": "anna", "user_pw": "wrong"}):
        assert Rtsp(server).request("DESCRIBE")[0] == 401
        assert server.metric("zrn_camera_openings_total") == 1
        client = look(address, 5, **login, **unchecked)
        client.communicate(timeout=PATIENCE)
        assert client.returncode != 0
    wait_until(lambda: server.log.count("refused, wrong user or password") > before)
    assert server.log.count(": opened") == 1


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


def test_clients_of_a_silent_camera_wait_together(serve):
    server = serve("--jpeg")
    clients = [Rtsp(server) for _ in range(10)]
    control("freeze", "camera=0")
    try:
        for client in clients:
            client.send("DESCRIBE")
        # One after the other they would wait for longer than anybody here does.
        statuses = [int(client.file.readline().split()[1]) for client in clients]
        assert min(statuses) >= 400
    finally:
        control("thaw", "camera=0")
    assert server.log.count("sends no frames") == 1
    assert server.metric("zrn_camera_openings_total") == 1


GUESS = f'Digest username="anna", realm="zrnserve", nonce="0", uri="x", response="{32 * "0"}"'


@pytest.mark.parametrize("protocol", ["rtsp", "http"])
def test_passwords_are_not_guessed(serve, files, protocol):
    server = serve("--users", files[0])
    server.credentials = "anna:right"
    stranger = "127.0.0.2"
    if protocol == "rtsp":
        client = Rtsp(server, source=stranger)
        statuses = [client.request("DESCRIBE", Authorization=GUESS)[0] for _ in range(7)]
        with pytest.raises((IndexError, ConnectionError)):
            client.request("DESCRIBE", Authorization=GUESS)
    else:
        port = int(re.search(r":(\d+)/", server.http)[1])
        client = http.client.HTTPConnection("127.0.0.1", port, PATIENCE, (stranger, 0))
        wrong = {"Authorization": "Basic " + base64.b64encode(b"anna:wrong").decode()}

        def ask():
            client.request("GET", "/", headers=wrong)
            answer = client.getresponse()
            answer.read()
            return answer.status

        statuses = [ask() for _ in range(7)]
        with pytest.raises((http.client.HTTPException, ConnectionError)):
            ask()
    assert statuses == 7 * [401]
    wait_until(lambda: re.search(
        rf"{stranger}:\d+: dropped, its address gave 8 wrong passwords", server.log))
    # A connection of its own for each does not help, and who knows the password has it nevertheless.
    client = Rtsp(server, source=stranger)
    with pytest.raises((IndexError, ConnectionError)):
        client.request("DESCRIBE", Authorization=GUESS)
    server.get("")


def test_who_asks_now_and_then_is_not_noted_as_dropped(serve):
    server = serve()
    port = int(re.search(r":(\d+)/", server.http)[1])
    content, idle = (http.client.HTTPConnection("127.0.0.1", port, PATIENCE) for _ in range(2))
    idle.connect()
    content.request("GET", "/metrics")
    content.getresponse().read()
    assert content.sock.recv(1) == b"" and idle.sock.recv(1) == b""  # both are in the way of others
    name = f"127.0.0.1:{{}}: dropped".format
    wait_until(lambda: name(idle.sock.getsockname()[1]) in server.log)
    assert name(content.sock.getsockname()[1]) not in server.log


def test_a_tunnel_through_http_has_two_places(serve):
    server = serve("--jpeg", "--max-clients", "3", "--max-clients-per-address", "3")
    client = look(server.address("a").replace("rtsp:", "rtsph:"), decoder="rtpjpegdepay ! jpegdec")
    wait_until(lambda: server.metric("zrn_viewers", stream="a") == 1)
    wait_until(lambda: "is half of a tunnel" in server.log)
    third = Rtsp(server)
    assert third.request("OPTIONS")[0] == 200
    with pytest.raises((IndexError, ConnectionError)):
        Rtsp(server).request("OPTIONS")
    stop([client])
    wait_until(lambda: server.clients() == 1)
    newcomers = []

    def comes_in():
        newcomers.append(Rtsp(server))
        with contextlib.suppress(IndexError, ConnectionError):
            return newcomers[-1].request("OPTIONS")[0] == 200

    wait_until(comes_in)
    wait_until(comes_in)
    assert "CRITICAL" not in server.log
