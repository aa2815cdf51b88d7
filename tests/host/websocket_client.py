# SPDX-License-Identifier: GPL-2.0-or-later
"""A client of obs-websocket over its socket (protocol 5), as the programs are that control the host remotely."""

import json
from collections import defaultdict, deque
from typing import Any

import websocket
from livehost.folder import MODULE

_HELLO, _IDENTIFY, _IDENTIFIED, _EVENT, _REQUEST, _ANSWER = 0, 1, 2, 5, 6, 7
_VENDOR_EVENTS = 1 << 9
SUCCESS = 100


class WebSocketClient(websocket.WebSocket):
    """To be closed before the host's end, which waits for its clients. Events are kept until they are asked for."""

    def __init__(self, port: int) -> None:
        super().__init__()
        self.events: dict[str, deque[dict[str, Any]]] = defaultdict(deque)
        self.connect(f"ws://127.0.0.1:{port}", timeout=30)  # of every read, too; the module gives up after 25 s
        self._next(_HELLO)
        self._put(_IDENTIFY, rpcVersion=1, eventSubscriptions=_VENDOR_EVENTS)
        self._next(_IDENTIFIED)

    def call(self, request: str, /, **fields: Any) -> tuple[int, dict[str, Any]]:
        """The code and the data of the answer to a request whose data, if any, are the field `requestData`."""
        self._put(_REQUEST, requestType="CallVendorRequest", requestId=request,
                  requestData={"vendorName": MODULE, "requestType": request} | fields)
        answer = self._next(_ANSWER)
        assert answer["requestId"] == request
        return answer["requestStatus"]["code"], answer.get("responseData", {}).get("responseData", {})

    def ask(self, request: str, /, **data: Any) -> dict[str, Any]:
        code, answer = self.call(request, requestData=data)
        assert code == SUCCESS
        return answer

    def event(self, kind: str, **data: Any) -> dict[str, Any]:
        """Waits for an event with such data; earlier ones of its kind are forgotten."""
        kept = self.events[kind]
        while not kept or not data.items() <= (event := kept.popleft()).items():
            if not kept:
                self._next(_EVENT)
        return event

    def _put(self, op: int, **data: Any) -> None:
        self.send(json.dumps({"op": op, "d": data}))

    def _next(self, op: int) -> dict[str, Any]:
        message = {"op": None}
        while message["op"] != op:
            message = json.loads(self.recv())
            if message["op"] == _EVENT:
                event = message["d"]["eventData"]
                self.events[event["eventType"]].append(event["eventData"])
        return message["d"]
