"""What is told to the network: by an Avahi that only remembers, on a bus of its own."""

import threading

import pytest
from gi.repository import Gio, GLib

from serving import control, wait_until

INTERFACES = """<node>
<interface name="org.freedesktop.Avahi.Server">
  <method name="EntryGroupNew"><arg type="o" direction="out"/></method>
  <method name="GetState"><arg type="i" direction="out"/></method>
  <method name="GetHostName"><arg type="s" direction="out"/></method>
  <method name="GetAlternativeServiceName">
    <arg type="s" direction="in"/><arg type="s" direction="out"/>
  </method>
  <signal name="StateChanged"><arg type="i"/><arg type="s"/></signal>
</interface>
<interface name="org.freedesktop.Avahi.EntryGroup">
  <method name="Reset"/><method name="Commit"/><method name="Free"/>
  <method name="AddService">
    <arg type="i" direction="in"/><arg type="i" direction="in"/><arg type="u" direction="in"/>
    <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="s" direction="in"/>
    <arg type="s" direction="in"/><arg type="q" direction="in"/><arg type="aay" direction="in"/>
  </method>
  <signal name="StateChanged"><arg type="i"/><arg type="s"/></signal>
</interface>
</node>"""


REGISTERING, RUNNING = 1, 2  # of the daemon
COLLISION = 3  # of a group


class Avahi:
    """Its answers to those who announce. Each group has what was added, and is announced once committed."""

    def __init__(self, address, host="left", local=()):
        self.host = host
        self.local = local  # names that the daemon itself knows to be taken
        self.groups = {}
        self.committed = set()
        self.calls = []
        self.context = GLib.MainContext()
        self.loop = GLib.MainLoop(self.context)
        self.context.push_thread_default()
        self.bus = Gio.DBusConnection.new_for_address_sync(
            address, Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
            | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)
        self.server, self.group = Gio.DBusNodeInfo.new_for_xml(INTERFACES).interfaces
        self.bus.register_object("/", self.server, self.answer, None, None)
        self.bus.call_sync("org.freedesktop.DBus", "/", "org.freedesktop.DBus", "RequestName",
                           GLib.Variant("(su)", ("org.freedesktop.Avahi", 0)), None, 0, -1, None)
        self.context.pop_thread_default()
        self.thread = threading.Thread(target=self.loop.run)
        self.thread.start()

    @property
    def announced(self):
        return dict(service for path in list(self.committed) if (service := self.groups.get(path)))

    def answer(self, bus, sender, path, interface, method, arguments, invocation):
        self.calls.append(method)
        answer = None
        if method == "EntryGroupNew":
            self.context.push_thread_default()
            answer = (f"/group{len(self.calls)}",)
            bus.register_object(answer[0], self.group, self.answer, None, None)
            self.context.pop_thread_default()
        elif method == "GetState":
            answer = (RUNNING,)
        elif method == "GetHostName":
            answer = (self.host,)
        elif method == "GetAlternativeServiceName":
            answer = (arguments.unpack()[0] + " #2",)
        elif method in ("Reset", "Free"):
            self.committed.discard(path)
            self.groups.pop(path, None)
        elif method == "AddService":
            _, _, _, name, kind, _, _, port, texts = arguments.unpack()
            if name in self.local:
                invocation.return_dbus_error("org.freedesktop.Avahi.CollisionError", "Local name collision")
                return
            self.groups[path] = (name, (kind, port, [bytes(text).decode() for text in texts]))
        elif method == "Commit":
            self.committed.add(path)
        kind = {"GetState": "(i)", "EntryGroupNew": "(o)"}.get(method, "(s)")
        invocation.return_value(GLib.Variant(kind, answer) if answer else None)

    def tell(self, path, interface, state):
        self.bus.emit_signal(None, path, f"org.freedesktop.Avahi.{interface}", "StateChanged",
                             GLib.Variant("(is)", (state, "")))

    def collide(self, name):
        """Another machine has that name."""
        path = next(path for path, service in self.groups.items() if service[0] == name)
        self.committed.discard(path)
        self.tell(path, "EntryGroup", COLLISION)

    def rename(self, host):
        """The machine: a group that is not made anew announces nothing more."""
        self.host = host
        self.tell("/", "Server", REGISTERING)
        self.committed.clear()
        self.tell("/", "Server", RUNNING)

    def end(self):
        self.context.invoke_full(GLib.PRIORITY_DEFAULT, self.loop.quit)
        self.thread.join()
        self.bus.close_sync(None)


@pytest.fixture
def bus(monkeypatch):
    bus = Gio.TestDBus.new(Gio.TestDBusFlags.NONE)
    bus.up()
    monkeypatch.setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.get_bus_address())
    yield bus
    bus.stop()


def test_cameras_are_announced_while_they_are_there(serve, files, bus):
    users, pem = files
    server = serve("--announce", "--listen", "0.0.0.0", "--users", users, "--certificate", pem)
    server.http = server.http.replace("0.0.0.0", "127.0.0.1")
    server.credentials = "anna:right"
    wait_until(lambda: "no Avahi daemon runs" in server.log)
    serial = server.camera()["serial"]
    avahi = Avahi(bus.get_bus_address())
    try:
        wait_until(lambda: serial in avahi.announced)
        assert avahi.announced[serial] == (
            "_rtsps._tcp", server.rtsp_port, [f"path=/{serial}/b"])
        page = avahi.announced["zrnserve on left"]
        assert page[0] == "_https._tcp" and page[2] == ["path=/"]
        control("unplug", "camera=0")
        wait_until(lambda: avahi.announced and serial not in avahi.announced)
        control("plug", "camera=0")
        wait_until(lambda: serial in avahi.announced)
        assert server.end() == 0
        wait_until(lambda: not avahi.announced)
    finally:
        avahi.end()
    assert "not announced" not in server.log


@pytest.fixture
def announcing(serve, files, bus):
    """The server, and the serial of its camera."""
    users, pem = files
    server = serve("--announce", "--listen", "0.0.0.0", "--users", users, "--certificate", pem)
    server.http = server.http.replace("0.0.0.0", "127.0.0.1")
    server.credentials = "anna:right"
    return server, server.camera()["serial"]


def test_a_name_that_another_machine_has_gives_way_alone(announcing, bus):
    server, serial = announcing
    avahi = Avahi(bus.get_bus_address())
    try:
        wait_until(lambda: len(avahi.announced) == 2)
        before = avahi.calls.count("EntryGroupNew")
        avahi.collide(serial)
        assert "zrnserve on left" in avahi.announced
        wait_until(lambda: f"{serial} #2" in avahi.announced)
        assert avahi.announced[f"{serial} #2"][2] == [f"path=/{serial}/b"]
        assert len(avahi.announced) == 2
        assert avahi.calls.count("EntryGroupNew") == before
        wait_until(lambda: f"{serial} is announced as {serial} #2" in server.log)
    finally:
        avahi.end()


def test_a_name_that_this_machine_has_gives_way(announcing, bus):
    server, serial = announcing
    avahi = Avahi(bus.get_bus_address(), local=("zrnserve on left",))
    try:
        wait_until(lambda: set(avahi.announced) == {serial, "zrnserve on left #2"})
    finally:
        avahi.end()
    assert "not announced" not in server.log


def test_another_name_of_the_machine_is_announced(announcing, bus):
    _, serial = announcing
    avahi = Avahi(bus.get_bus_address())
    try:
        wait_until(lambda: set(avahi.announced) == {serial, "zrnserve on left"})
        avahi.rename("right")
        wait_until(lambda: set(avahi.announced) == {serial, "zrnserve on right"})
    finally:
        avahi.end()
