# SPDX-License-Identifier: GPL-2.0-or-later
"""Free ports, and who listens or is connected, read from the kernel's socket tables.

Reading the tables instead of connecting keeps a readiness probe from being taken for a
caller by a server that serves just one.
"""

import socket
from pathlib import Path

_ESTABLISHED = "01"
_TCP_LISTEN = "0A"
_UDP_BOUND = "07"


def free_port(kind: socket.SocketKind = socket.SOCK_STREAM) -> int:
    """A port that is free now; the network may be shared with the whole machine."""
    with socket.socket(socket.AF_INET, kind) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def _count(protocol: str, port: int, state: str) -> int:
    count = 0
    for table in (Path("/proc/net", protocol), Path("/proc/net", f"{protocol}6")):
        lines = table.read_text().splitlines()[1:] if table.exists() else []
        for fields in map(str.split, lines):
            count += int(fields[1].rpartition(":")[2], 16) == port and fields[3] == state
    return count


def tcp_listens(port: int) -> bool:
    return _count("tcp", port, _TCP_LISTEN) > 0


def tcp_clients(port: int) -> int:
    """How many connections a local TCP server on this port holds."""
    return _count("tcp", port, _ESTABLISHED)


def udp_bound(port: int) -> bool:
    return _count("udp", port, _UDP_BOUND) > 0
