"""Separate networks and disks for the programs of a test: links that are cut, and disks that become full."""

import os
import socket
import subprocess
import sys
import unittest

# Runs in a namespace: connects for the test, and passes it the connection. Ends with the test.
HOLDER = """
import socket
test = socket.socket(fileno=0)
test.send(b"ready")
while address := test.recv(256):
    host, port = address.decode().split()
    try:
        with socket.create_connection((host, int(port)), 5) as connection:
            socket.send_fds(test, [b"connected"], [connection.fileno()])
    except OSError as failure:
        test.send(str(failure).encode())
"""


class Namespace:
    """
    A network and mounts that only programs in it see, with the rights to change them. It ends with the context. Skips the
    test where the system does not permit that.
    """

    def __init__(self, *, beside=None):
        """`beside` is another one, which has rights in this one, too."""
        rights = [*beside.inside, "unshare"] if beside else ["unshare", "--map-root-user"]
        self.test, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        with theirs:
            self.holder = subprocess.Popen([*rights, "--mount", "--net", sys.executable, "-I", "-S", "-c", HOLDER],
                                           stdin=theirs, stderr=subprocess.PIPE)
        self.inside = ["nsenter", f"--target={self.holder.pid}", "--user", "--net", "--mount", "--preserve-credentials", "--"]
        if not self.test.recv(256):
            reason = self.holder.communicate()[1].decode().strip()
            self.test.close()
            raise unittest.SkipTest(f"this system does not permit separate networks and mounts: {reason}")
        self.run("ip", "link", "set", "lo", "up")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.test.close()
        self.holder.communicate()

    def run(self, *command):
        """Runs a command inside."""
        subprocess.run([*self.inside, *map(str, command)], check=True, stdin=subprocess.DEVNULL)

    def connect(self, address):
        """Connects to a host and a port, as a program inside would."""
        self.test.send(f"{address[0]} {address[1]}".encode())
        answer, connections, *_ = socket.recv_fds(self.test, 256, 1)
        if not connections:
            raise ConnectionError(answer.decode())
        return socket.socket(fileno=connections[0])


class Cable:
    """Joins two namespaces, whose addresses are then `addresses`."""

    addresses = ("10.77.0.1", "10.77.0.2")

    def __init__(self, one, other):
        self.ends = (one, other)
        one.run("ip", "link", "add", "dev", "cable", "type", "veth", "peer", "name", "cable", "netns", other.holder.pid)
        for end, address in zip(self.ends, self.addresses):
            end.run("ip", "address", "add", f"{address}/24", "dev", "cable")
            end.run("ip", "link", "set", "cable", "up")

    def cut(self, end):
        """Cuts it at an end: 0 or 1."""
        self.ends[end].run("ip", "link", "set", "cable", "down")

    def join(self, end):
        """Joins it again."""
        self.ends[end].run("ip", "link", "set", "cable", "up")

    def lose(self, end):
        """From now on, most packets that are sent at this end are lost, and all large ones."""
        self.ends[end].run("tc", "qdisc", "add", "dev", "cable", "root", "tbf", "rate", "4kbit", "burst", "600", "limit", "600")

    def heal(self, end):
        """Ends that."""
        self.ends[end].run("tc", "qdisc", "delete", "dev", "cable", "root")


class SmallDisk:
    """A disk in a namespace, at a directory that exists."""

    def __init__(self, namespace, path, megabytes):
        namespace.run("mount", "-t", "tmpfs", "-o", f"size={megabytes}m,mode=0777", "tmpfs", path)
        self.path = path
        self.filler = f"/proc/{namespace.holder.pid}/root{path}/filler"

    def fill(self):
        """Fills it to the last byte."""
        with open(self.filler, "ab", buffering=0) as file:
            for size in (1 << 16, 1):
                try:
                    while file.write(bytes(size)):
                        pass
                except OSError:
                    pass

    def free(self):
        """Ends that."""
        os.unlink(self.filler)
