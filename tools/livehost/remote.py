# SPDX-License-Identifier: GPL-2.0-or-later
"""Requests to the host through the driver module in it, one JSON object a line."""

import json
import select
import socket
import time
from typing import Any

from .waiting import POLL_SECONDS

_SUCCESS, _NOT_READY = 100, 207
_SECONDS = 20


class HostError(RuntimeError):
    """The host did not do what any run needs: start, answer, quit."""


class Remote:
    """One end of a pair of connected sockets; the host gets the other one. Not thread-safe."""

    def __init__(self) -> None:
        self._socket, self.host_end = socket.socketpair()
        self._socket.settimeout(_SECONDS)
        self._lines = self._socket.makefile("rb")

    def close(self) -> None:
        for end in (self._lines, self._socket, self.host_end):
            end.close()

    def ready(self) -> bool:
        """Whether the host has finished its start; it then sends an empty object."""
        return bool(select.select([self._socket], [], [], 0)[0]) and self._lines.readline() != b""

    def request(self, name: str, **data: Any) -> dict[str, Any]:
        """One of obs-websocket's requests; waits while the host is not ready for it."""
        deadline = time.monotonic() + _SECONDS
        while True:
            answer = self.ask("request", type=name, data=data)
            if answer["code"] == _SUCCESS:
                return answer["data"]
            if answer["code"] != _NOT_READY or time.monotonic() > deadline:
                raise HostError(f"{name}: {answer['comment'] or 'refused'} ({answer['code']})")
            time.sleep(POLL_SECONDS)

    def ask(self, what: str, /, **data: Any) -> dict[str, Any]:
        """One of the driver's own requests."""
        self._socket.sendall(json.dumps({"do": what} | data).encode() + b"\n")
        line = self._lines.readline()
        if not line:
            raise ConnectionError(f"{what}: the host hung up")
        return json.loads(line)
