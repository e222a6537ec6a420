"""What is told to the network: by an Avahi that only remembers, on a bus of its own."""

import os
import threading

import pytest
from gi.repository import Gio, GLib

from serving import control, wait_until

INTERFACES = """<node>
<interface name="org.freedesktop.Avahi.Server">
  <method name="EntryGroupNew"><arg type="o" direction="out"/></method>
</interface>
<interface name="org.freedesktop.Avahi.EntryGroup">
  <method name="Reset"/><method name="Commit"/><method name="Free"/>
  <method name="AddService">
    <arg type="i" direction="in"/><arg type="i" direction="in"/><arg type="u" direction="in"/>
    <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="s" direction="in"/>
    <arg type="s" direction="in"/><arg type="q" direction="in"/><arg type="aay" direction="in"/>
  </method>
</interface>
</node>"""


class Avahi:
    """Its answers to those who announce."""

    def __init__(self, address):
        self.announced = {}
        self.added = {}
        self.context = GLib.MainContext()
        self.loop = GLib.MainLoop(self.context)
        self.context.push_thread_default()
        self.bus = Gio.DBusConnection.new_for_address_sync(
            address, Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
            | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)
        for path, interface in zip(("/", "/group"), Gio.DBusNodeInfo.new_for_xml(INTERFACES).interfaces):
            self.bus.register_object(path, interface, self.answer, None, None)
        self.bus.call_sync("org.freedesktop.DBus", "/", "org.freedesktop.DBus", "RequestName",
                           GLib.Variant("(su)", ("org.freedesktop.Avahi", 0)), None, 0, -1, None)
        self.context.pop_thread_default()
        self.thread = threading.Thread(target=self.loop.run)
        self.thread.start()

    def answer(self, bus, sender, path, interface, method, arguments, invocation):
        if method in ("Reset", "Free"):
            self.added = {}
        if method == "AddService":
            _, _, _, name, kind, _, _, port, texts = arguments.unpack()
            self.added[name] = (kind, port, [bytes(text).decode() for text in texts])
        if method in ("Commit", "Free"):
            self.announced = dict(self.added)
        invocation.return_value(
            GLib.Variant("(o)", ("/group",)) if method == "EntryGroupNew" else None)

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
        page = avahi.announced[f"zrnserve on {os.uname().nodename}"]
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
