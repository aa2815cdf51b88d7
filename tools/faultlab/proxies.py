# SPDX-License-Identifier: GPL-2.0-or-later
"""The network between the host and a server, on the loopback alone, with its faults."""

import asyncio
import random
import socket
import struct
import threading
from collections.abc import Awaitable, Callable, Iterator
from contextlib import contextmanager, suppress
from typing import Self

_LOOPBACK = "127.0.0.1"
# As on a real line: with the loopback's own 64 KiB segments the sender's kernel would swallow
# seconds of the stream before it notices that nobody reads.
_SEGMENT_BYTES = 1400
_RECEIVE_BUFFER_BYTES = 16384
_CHUNK_BYTES = 4096
_RESET_AT_CLOSE = struct.pack("ii", 1, 0)


class _Proxy:
    """An event loop on a thread of its own, in which everything of a proxy happens."""

    def __init__(self) -> None:
        self._loop = asyncio.new_event_loop()
        self._thread = threading.Thread(target=self._loop.run_forever, daemon=True)

    def __enter__(self) -> Self:
        self._thread.start()
        self._run(self._open())
        return self

    def __exit__(self, *_: object) -> None:
        self._run(self._end())
        self._loop.call_soon_threadsafe(self._loop.stop)
        self._thread.join()
        self._loop.close()

    def _run(self, work: Awaitable[None]) -> None:
        asyncio.run_coroutine_threadsafe(work, self._loop).result(20)

    def _do(self, action: Callable[[], None]) -> None:
        async def once() -> None:
            action()
        self._run(once())

    async def _open(self) -> None:
        raise NotImplementedError

    async def _end(self) -> None:
        for task in asyncio.all_tasks() - {asyncio.current_task()}:
            task.cancel()


class TcpProxy(_Proxy):
    """Hands on what comes; every fault hits all connections."""

    def __init__(self, server_port: int) -> None:
        super().__init__()
        self._server_port = server_port
        self._pairs: set[tuple[socket.socket, socket.socket]] = set()
        self._up = asyncio.Event()  # data flows from the host
        self._down = asyncio.Event()  # data and new connections flow to the host
        self._rate: float | None = None
        self.passed_bytes = 0
        self._listener = socket.socket()
        self._listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self._listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, _RECEIVE_BUFFER_BYTES)
        self._listener.setsockopt(socket.IPPROTO_TCP, socket.TCP_MAXSEG, _SEGMENT_BYTES)
        self._listener.bind((_LOOPBACK, 0))
        self.port = self._listener.getsockname()[1]

    def close(self) -> None:
        """Ends every connection in order, as a server does that is told to quit."""
        self._do(self._close_all)

    def reset(self) -> None:
        """Ends every connection with a TCP reset."""
        def reset() -> None:
            for host, _ in self._pairs:
                host.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, _RESET_AT_CLOSE)
            self._close_all()
        self._do(reset)

    def stall(self) -> None:
        """Reads no more from the host: the receive window closes."""
        self._do(self._up.clear)

    def cut(self) -> None:
        """Hands on nothing in either direction and closes nothing, as a line that is down."""
        self._do(lambda: (self._up.clear(), self._down.clear()))

    def throttle(self, bytes_per_second: float | None) -> None:
        def set_rate() -> None:
            self._rate = bytes_per_second
        self._do(set_rate)

    def mend(self) -> None:
        """Ends a stall, a cut and a throttle."""
        self._do(lambda: (self._up.set(), self._down.set()))
        self.throttle(None)

    def _close_all(self) -> None:
        for pair in list(self._pairs):
            self._close_pair(pair)

    def _close_pair(self, pair: tuple[socket.socket, socket.socket]) -> None:
        self._pairs.discard(pair)
        for end in pair:
            # Closing alone would leave a pump waiting on a descriptor that another socket may get.
            self._loop.remove_reader(end) if end.fileno() >= 0 else None
            end.close()

    async def _open(self) -> None:
        self._up.set()
        self._down.set()
        self._listener.listen()
        self._listener.setblocking(False)
        self._accepting = asyncio.ensure_future(self._accept())

    async def _end(self) -> None:
        await super()._end()
        self._close_all()
        self._listener.close()

    async def _accept(self) -> None:
        tasks = set()
        while True:
            host, _ = await self._loop.sock_accept(self._listener)
            task = asyncio.ensure_future(self._connect(host))
            tasks.add(task)
            task.add_done_callback(tasks.discard)

    async def _connect(self, host: socket.socket) -> None:
        await self._down.wait()
        server = socket.socket()
        server.setblocking(False)
        host.setblocking(False)
        pair = (host, server)
        self._pairs.add(pair)
        with suppress(OSError):
            await self._loop.sock_connect(server, (_LOOPBACK, self._server_port))
            pumps = [asyncio.ensure_future(self._pump(host, server, self._up, True)),
                     asyncio.ensure_future(self._pump(server, host, self._down, False))]
            await asyncio.wait(pumps, return_when=asyncio.FIRST_COMPLETED)
            for pump in pumps:
                pump.cancel()
        self._close_pair(pair)

    async def _pump(self, source: socket.socket, target: socket.socket, gate: asyncio.Event, paced: bool) -> None:
        with suppress(OSError):
            while True:
                await gate.wait()
                data = await self._loop.sock_recv(source, _CHUNK_BYTES)
                await gate.wait()
                if not data:
                    return
                await self._loop.sock_sendall(target, data)
                if paced:
                    self.passed_bytes += len(data)
                    if self._rate:
                        await asyncio.sleep(len(data) / self._rate)


class UdpProxy(_Proxy):
    """Relays the datagrams of each caller; drops a share of them, or all while the line is cut."""

    def __init__(self, server_port: int) -> None:
        super().__init__()
        self._server = (_LOOPBACK, server_port)
        self._relays: dict[tuple[str, int], asyncio.DatagramTransport] = {}
        self._chance = random.Random(1)
        self.loss = 0.0  # share of the datagrams dropped, each way
        self.delay_seconds = 0.0  # each way
        self.port = 0

    def cut(self) -> None:
        self.loss = 1.0

    def mend(self) -> None:
        self.loss = 0.0

    async def _open(self) -> None:
        self._front, _ = await self._loop.create_datagram_endpoint(
            lambda: _Receiver(self._from_caller), local_addr=(_LOOPBACK, 0))
        self.port = self._front.get_extra_info("sockname")[1]

    async def _end(self) -> None:
        await super()._end()
        for transport in (self._front, *self._relays.values()):
            transport.abort()

    def _from_caller(self, data: bytes, caller: tuple[str, int]) -> None:
        if caller in self._relays:
            self._pass(self._relays[caller], data, None)
        else:
            asyncio.ensure_future(self._first(data, caller))

    async def _first(self, data: bytes, caller: tuple[str, int]) -> None:
        relay, _ = await self._loop.create_datagram_endpoint(
            lambda: _Receiver(lambda answer, _: self._pass(self._front, answer, caller)), remote_addr=self._server)
        self._relays.setdefault(caller, relay)
        self._pass(relay, data, None)

    def _pass(self, transport: asyncio.DatagramTransport, data: bytes, to: tuple[str, int] | None) -> None:
        if self._chance.random() >= self.loss:
            self._loop.call_later(self.delay_seconds, transport.sendto, data, to)


class _Receiver(asyncio.DatagramProtocol):
    def __init__(self, take: Callable[[bytes, tuple[str, int]], None]) -> None:
        self._take = take

    def datagram_received(self, data: bytes, addr: tuple[str, int]) -> None:
        self._take(data, addr)


@contextmanager
def silent_server() -> Iterator[int]:
    """The port of a server whose kernel takes every connection and that never reads or says a word."""
    with socket.create_server((_LOOPBACK, 0), backlog=64) as listener:
        yield listener.getsockname()[1]


@contextmanager
def black_hole() -> Iterator[int]:
    """A port at which the first packet of every connection vanishes, since the queue of connections
    to be accepted is full."""
    with socket.socket() as listener:
        listener.bind((_LOOPBACK, 0))
        listener.listen(0)
        port = listener.getsockname()[1]
        fillers = []
        for _ in range(4):
            filler = socket.socket()
            filler.setblocking(False)
            filler.connect_ex((_LOOPBACK, port))
            fillers.append(filler)
        yield port
        for filler in fillers:
            filler.close()
