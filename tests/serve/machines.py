"""Machines of a network: a network namespace each, and between them a link that loses and delays packets.

The link needs no module of the kernel: what a machine sends goes through a process that holds each packet for a while, and
throws some away. Everything ends with the processes that hold the namespaces."""

import os
import signal
import subprocess


def reason_against():
    """Why there can be no machines here, or None."""
    try:
        tried = subprocess.run(
            ["unshare", "--net", "--mount", "sh", "-c", "ip link add one type veth peer name other"],
            capture_output=True, text=True)
    except OSError as error:
        return str(error)
    return tried.stderr.strip() or None if tried.returncode else None


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
        self.relay = self.link.start(os.environ["LOSSY_LINK"], loss, delay, stdin=subprocess.PIPE,
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
