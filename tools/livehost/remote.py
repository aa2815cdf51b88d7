# SPDX-License-Identifier: GPL-2.0-or-later
"""Requests to the host over its own remote control, obs-websocket."""

import json
import time
from itertools import count
from typing import Any

import websocket

from .waiting import POLL_SECONDS

_NOT_READY = 207
_HELLO, _IDENTIFY, _IDENTIFIED, _REQUEST, _RESPONSE = 0, 1, 2, 6, 7


class RequestError(RuntimeError):
    """The host refused a request; `code` is obs-websocket's status code."""

    def __init__(self, name: str, code: int, comment: str) -> None:
        super().__init__(f"{name}: {comment or 'refused'} ({code})")
        self.code = code


class Remote:
    """One connection; not to be shared between threads."""

    def __init__(self, port: int, seconds: float = 20) -> None:
        self._seconds = seconds
        self._ids = count()
        self._socket = websocket.create_connection(f"ws://127.0.0.1:{port}", timeout=seconds)
        self._receive(_HELLO)
        self._send(_IDENTIFY, {"rpcVersion": 1, "eventSubscriptions": 0})
        self._receive(_IDENTIFIED)

    def close(self) -> None:
        self._socket.close()

    def request(self, name: str, **data: Any) -> dict[str, Any]:
        """Sends a request and returns its answer; waits while the host is not ready for requests."""
        deadline = time.monotonic() + self._seconds
        while True:
            number = str(next(self._ids))
            self._send(_REQUEST, {"requestType": name, "requestId": number, "requestData": data})
            answer = self._receive(_RESPONSE)
            while answer["requestId"] != number:
                answer = self._receive(_RESPONSE)
            status = answer["requestStatus"]
            if status["result"]:
                return answer.get("responseData") or {}
            if status["code"] != _NOT_READY or time.monotonic() > deadline:
                raise RequestError(name, status["code"], status.get("comment", ""))
            time.sleep(POLL_SECONDS)

    def vendor(self, vendor: str, name: str, /, **data: Any) -> dict[str, Any]:
        """A request that a module loaded into the host answers."""
        answer = self.request("CallVendorRequest", vendorName=vendor, requestType=name, requestData=data)
        return answer["responseData"]

    def _send(self, code: int, data: dict[str, Any]) -> None:
        self._socket.send(json.dumps({"op": code, "d": data}))

    def _receive(self, code: int) -> dict[str, Any]:
        while True:
            message = json.loads(self._socket.recv())
            if message["op"] == code:
                return message["d"]
