# SPDX-License-Identifier: GPL-2.0-or-later
"""Requests to the host through the driver module in it, one JSON object a line."""

import json
import select
import socket
import time
from typing import Any

from .waiting import POLL_SECONDS

_SUCCESS, _NOT_READY = 100, 207


class RequestError(RuntimeError):
    """The host refused a request; `code` is obs-websocket's status code."""

    def __init__(self, name: str, code: int, comment: str) -> None:
        super().__init__(f"{name}: {comment or 'refused'} ({code})")
        self.code = code


class Remote:
    """One end of a pair of connected sockets; the host inherits the other one, whose number it finds
    in the environment. Not to be shared between threads."""

    def __init__(self, seconds: float = 20) -> None:
        self._seconds = seconds
        self._socket, self._of_host = socket.socketpair()
        self._socket.settimeout(seconds)
        self._lines = self._socket.makefile("rb")
        self.inherited = self._of_host.fileno()
        self.environment = {"LIVEHOST_SOCKET": str(self.inherited)}

    def host_started(self) -> None:
        """From now on the host's end closes with the host."""
        self._of_host.close()

    def close(self) -> None:
        for end in (self._lines, self._socket, self._of_host):
            end.close()

    def ready(self) -> bool:
        """Whether the host has finished its start; it then sends an empty object."""
        return bool(select.select([self._socket], [], [], 0)[0]) and self._lines.readline() != b""

    def request(self, name: str, **data: Any) -> dict[str, Any]:
        """One of obs-websocket's requests, by its name there; waits while the host is not ready for it."""
        deadline = time.monotonic() + self._seconds
        while True:
            answer = self.ask("request", type=name, data=data)
            if answer["code"] == _SUCCESS:
                return answer["data"]
            if answer["code"] != _NOT_READY or time.monotonic() > deadline:
                raise RequestError(name, answer["code"], answer["comment"])
            time.sleep(POLL_SECONDS)

    def ask(self, what: str, /, **data: Any) -> dict[str, Any]:
        """One of the driver's own requests."""
        self._socket.sendall(json.dumps({"do": what} | data).encode() + b"\n")
        line = self._lines.readline()
        if not line:
            raise ConnectionError(f"{what}: the host hung up")
        return json.loads(line)
