"""Machines of a network: a network namespace each, and between them a link that loses and delays packets.

The link needs no module of the kernel: what a machine sends goes through a process that holds each packet for a while, and
throws some away. Everything ends with the processes that hold the namespaces."""

import heapq
import itertools
import os
import random
import select
import signal
import socket
import subprocess
import sys
import time

ETH_P_ALL = 3
SOL_PACKET, PACKET_VNET_HDR, PACKET_IGNORE_OUTGOING = 263, 15, 23
SO_RCVBUFFORCE = 33
LONGEST = 1 << 17  # bytes of a packet, with what the kernel says of it


def reason_against():
    """Why there can be no machines here, or None."""
    try:
        tried = subprocess.run(
            ["unshare", "--net", "--mount", "sh", "-c", "ip link add one type veth peer name other"],
            capture_output=True, text=True)
    except OSError as error:
        return str(error)
    return tried.stderr.strip() or None if tried.returncode else None


def relay(loss, delay):
    """Carries packets between all interfaces of its namespace but the loopback one: each to all others. A line on standard
    input cuts or mends the link."""
    ports = []
    for _, name in socket.if_nameindex():
        if name == "lo":
            continue
        port = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
        # With the checksums and sizes that the kernel leaves to the hardware, which there is none of.
        port.setsockopt(SOL_PACKET, PACKET_VNET_HDR, 1)
        port.setsockopt(SOL_PACKET, PACKET_IGNORE_OUTGOING, 1)
        port.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, 1 << 24)
        port.bind((name, ETH_P_ALL))
        port.setblocking(False)
        ports.append(port)
    chance = random.Random(1)
    order = itertools.count()
    held = []
    is_cut = False
    print("ready", flush=True)
    while True:
        wait = max(0, held[0][0] - time.monotonic()) if held else None
        for port in select.select([*ports, sys.stdin], [], [], wait)[0]:
            if port is sys.stdin:
                line = sys.stdin.readline()
                if not line:
                    return
                is_cut = line.strip() == "cut"
                continue
            try:
                packet = port.recv(LONGEST)
            except OSError:
                continue  # the machine at this end is gone
            if not is_cut and chance.random() >= loss:
                heapq.heappush(held, (time.monotonic() + delay, next(order), port, packet))
        while held and held[0][0] <= time.monotonic():
            _, _, source, packet = heapq.heappop(held)
            for port in ports:
                if port is not source:
                    try:
                        port.send(packet)
                    except OSError:
                        pass  # a packet more that is lost


class Namespace:
    def __init__(self):
        # Its shell says when it is in the namespace.
        self.holder = subprocess.Popen(
            ["unshare", "--net", "--mount", "sh", "-c", "ip link set lo up && echo && exec sleep infinity"],
            stdout=subprocess.PIPE)
        self.holder.stdout.readline()
        self.children = []

    def inside(self, command, folder):
        return ["nsenter", f"--target={self.holder.pid}", "--net", "--mount", f"--wdns={folder}", "--", *map(str, command)]

    def run(self, *command, **options):
        return subprocess.run(self.inside(command, "/"), **{"check": True, **options})

    def start(self, *command, folder="/", **options):
        """In a process group of its own."""
        self.children.append(subprocess.Popen(self.inside(command, folder), start_new_session=True, **options))
        return self.children[-1]

    def kill(self, process):
        """Without notice, with all that it started."""
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()

    def end(self):
        for child in self.children:
            self.kill(child)
        self.holder.kill()
        self.holder.wait()


class Network:
    """@param names of the machines, which have the addresses 10.77.0.1 and so on"""

    def __init__(self, *names, loss=0.01, delay=0.02):
        self.link = Namespace()
        self.machines = {}
        for number, name in enumerate(names, 1):
            machine = Namespace()
            machine.address = f"10.77.0.{number}"
            self.machines[name] = machine
            self.link.run("ip", "link", "add", f"port{number}", "type", "veth", "peer", "name", "eth0",
                          "netns", machine.holder.pid)
            self.link.run("ip", "link", "set", f"port{number}", "up")
            # One packet for one segment: each is lost by itself.
            machine.run("ip", "link", "set", "eth0", "gso_max_segs", "1", "up")
            machine.run("ip", "address", "add", f"{machine.address}/24", "dev", "eth0")
        self.relay = self.link.start(sys.executable, __file__, loss, delay, stdin=subprocess.PIPE,
                                     stdout=subprocess.PIPE, text=True)
        assert self.relay.stdout.readline() == "ready\n"

    def __getattr__(self, name):
        return self.machines[name]

    def cut(self):
        self._tell("cut")

    def mend(self):
        self._tell("mend")

    def _tell(self, what):
        self.relay.stdin.write(what + "\n")
        self.relay.stdin.flush()

    def end(self):
        for machine in [*self.machines.values(), self.link]:
            machine.end()


if __name__ == "__main__":
    relay(float(sys.argv[1]), float(sys.argv[2]))
