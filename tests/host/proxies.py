# SPDX-License-Identifier: GPL-2.0-or-later
"""The network between the host and a server, on the loopback, with its faults. Proxies last as long as the process."""

import asyncio
import random
import socket
import struct
import threading
import time
from contextlib import suppress

LOOPBACK = "127.0.0.1"
_CHUNK_BYTES = 4096
# As on a real line: with the loopback's own 64 KiB segments the sender's kernel would swallow
# seconds of the stream before it notices that nobody reads.
_SEGMENT_BYTES, _RECEIVE_BUFFER_BYTES = 1400, 16384
_RESET_AT_CLOSE = struct.pack("ii", 1, 0)


class TcpProxy:
    """Hands on what comes; every fault hits all connections."""

    def __init__(self, server_port: int) -> None:
        self._server = (LOOPBACK, server_port)
        self.callers: list[socket.socket] = []
        self._flows = threading.Event()
        self._listener = socket.create_server((LOOPBACK, 0))
        self._listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, _RECEIVE_BUFFER_BYTES)
        self._listener.setsockopt(socket.IPPROTO_TCP, socket.TCP_MAXSEG, _SEGMENT_BYTES)
        self.port = self._listener.getsockname()[1]
        self.mend()
        threading.Thread(target=self._accept, daemon=True).start()

    def close(self, reset: bool = False) -> None:
        """Ends every connection in order, or with a TCP reset."""
        for caller in self.callers:
            with suppress(OSError):  # has ended
                if reset:
                    caller.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, _RESET_AT_CLOSE)
                caller.shutdown(socket.SHUT_RD)

    def cut(self) -> None:
        """Hands on nothing in either direction and closes nothing."""
        self._flows.clear()

    def slow_down(self, bytes_per_second: float) -> None:
        """From the host to the server."""
        self._seconds_per_byte = 1 / bytes_per_second

    def mend(self) -> None:
        self._seconds_per_byte = 0.0
        self._flows.set()

    def _accept(self) -> None:
        while True:
            caller, _ = self._listener.accept()
            self.callers.append(caller)
            threading.Thread(target=self._serve, args=(caller,), daemon=True).start()

    def _serve(self, caller: socket.socket) -> None:
        with caller, suppress(OSError), socket.create_connection(self._server) as server:
            answers = threading.Thread(target=self._pump, args=(server, caller), daemon=True)
            answers.start()
            self._pump(caller, server, paced=True)
            answers.join()

    def _pump(self, source: socket.socket, target: socket.socket, paced: bool = False) -> None:
        with suppress(OSError):
            while data := source.recv(_CHUNK_BYTES):
                self._flows.wait()
                target.sendall(data)
                if paced:
                    time.sleep(len(data) * self._seconds_per_byte)
        # Wakes the other direction. Writing stays open: an orderly end must not precede a reset.
        for end in (source, target):
            with suppress(OSError):
                end.shutdown(socket.SHUT_RD)


class UdpProxy:
    """Relays the datagrams of each caller; drops and delays them, each way."""

    def __init__(self, server_port: int, delay_seconds: float = 0.0) -> None:
        self._server, self._delay_seconds, self._loss = (LOOPBACK, server_port), delay_seconds, 0.0
        self._chance = random.Random(1)
        self._routes: dict[object, tuple[socket.socket, tuple[str, int]]] = {}  # by caller or by its relay
        self._loop = asyncio.new_event_loop()
        self._front = self._open()
        self.port = self._front.getsockname()[1]
        threading.Thread(target=self._loop.run_forever, daemon=True).start()

    def cut(self, share: float = 1.0) -> None:
        self._loss = share

    def mend(self) -> None:
        self._loss = 0.0

    def _open(self) -> socket.socket:
        end = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        end.bind((LOOPBACK, 0))
        self._loop.add_reader(end, self._relay, end)
        return end

    def _relay(self, end: socket.socket) -> None:
        data, sender = end.recvfrom(_CHUNK_BYTES)
        if end is self._front and sender not in self._routes:
            relay = self._open()
            self._routes |= {sender: (relay, self._server), relay: (self._front, sender)}
        target, address = self._routes[sender if end is self._front else end]
        if self._chance.random() >= self._loss:
            self._loop.call_later(self._delay_seconds, target.sendto, data, address)
