"""Which addresses processes listen on."""

import contextlib
import errno
import glob
import os
import pathlib
import re
import socket

from kit import tools

PROC_NET = pathlib.Path("/proc/net")
LISTEN = "0A"
MAPPED = "::ffff:"  # an address of IPv4, on a socket of IPv6


def listeners(pids, port):
    """Each as ADDRESS:PORT: what these processes listen on, and where known whoever else listens on
    that port."""
    if (PROC_NET / "tcp").exists():
        return from_proc({inode for pid in pids for inode in sockets_of(pid)}, port)
    listing = tools.run("/usr/sbin/lsof", "-nP", "-a", "-p", ",".join(map(str, pids)), "-iTCP",
                        "-sTCP:LISTEN", "-Fn")
    return from_lsof(listing.stdout.decode("utf-8", "replace"))


def from_lsof(text):
    return sorted({line[1:] for line in text.splitlines() if line.startswith("n")})


def from_proc(inodes, port):
    found = set()
    for address, number, inode in listening_sockets():
        if number == port or inode in inodes:
            found.add(f"[{address}]:{number}" if ":" in address else f"{address}:{number}")
    return sorted(found)


def listening_sockets():
    for name, family in (("tcp", socket.AF_INET), ("tcp6", socket.AF_INET6)):
        with contextlib.suppress(OSError):
            for line in (PROC_NET / name).read_text().splitlines()[1:]:
                fields = line.split()
                if fields[3] == LISTEN:
                    address, _, number = fields[1].partition(":")
                    yield address_in(address, family), int(number, 16), fields[9]


def address_in(digits, family):
    """The address that Linux spells in words of its own byte order."""
    words = re.findall("." * 8, digits)
    address = socket.inet_ntop(family, b"".join(
        int(word, 16).to_bytes(4, "little" if is_little_endian() else "big") for word in words))
    return address[len(MAPPED):] if address.startswith(MAPPED) else address


def is_little_endian():
    return socket.htons(1) != 1


def sockets_of(pid):
    """The inodes of the sockets that a process holds; its first thread may have ended."""
    for link in glob.iglob(f"/proc/{pid}/task/*/fd/*"):
        with contextlib.suppress(OSError):
            yield from re.findall(r"socket:\[(\d+)\]", os.readlink(link))


def accepts(port, address="127.0.0.1", seconds=1.0):
    """Whether somebody takes connections there."""
    with contextlib.suppress(OSError), socket.create_connection((address, port), timeout=seconds):
        return True
    return False


def other_addresses():
    """Addresses of this machine that are not the IPv4 loopback address."""
    found = ["::1"]
    for family, somewhere in ((socket.AF_INET, "192.0.2.1"), (socket.AF_INET6, "2001:db8::1")):
        # Connecting a datagram socket sends nothing, it chooses an address.
        with contextlib.suppress(OSError), socket.socket(family, socket.SOCK_DGRAM) as probe:
            probe.connect((somewhere, 9))
            found.append(probe.getsockname()[0])
    return found


def is_free(port):
    """Whether nobody listens there, on any address, and no earlier connection still keeps it."""
    for family, address in ((socket.AF_INET, "0.0.0.0"), (socket.AF_INET6, "::")):
        with contextlib.suppress(OSError), socket.socket(family) as probe:
            if family == socket.AF_INET6:
                probe.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_V6ONLY, 1)
            try:
                probe.bind((address, port))
            except OSError as error:
                if error.errno == errno.EADDRINUSE:
                    return False
    return True
