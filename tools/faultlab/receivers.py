# SPDX-License-Identifier: GPL-2.0-or-later
"""Servers whose received pictures can be counted while they come in."""

import socket
import struct
import subprocess
from pathlib import Path
from typing import Self

from livehost.servers import RtmpServer
from livehost.sockets import free_port, udp_bound
from livehost.waiting import end_child, wait_until

from .stage import KEY

_FLV_HEADER = 13
_FLV_TAG = 11
_FLV_AUDIO, _FLV_VIDEO = 8, 9
_AVC_PICTURES = 1
_TS_PACKET = 188
_TS_VIDEO = 0x100  # the number that FFmpeg gives an MPEG-TS's first stream


class GrowingFile:
    """Counts the pictures of a file that is still being written; reads each byte once."""

    def __init__(self, path: Path) -> None:
        self.path = path
        self.pictures = 0
        self._position = 0

    def read_on(self) -> None:
        # A server that names files by the second writes over one that was begun in the same second.
        if self.path.stat().st_size < self._position:
            self._position = 0
        with self.path.open("rb") as file:
            file.seek(self._position)
            data = file.read()
        self._position += self._count(data)

    def _count(self, data: bytes) -> int:
        """Counts the pictures of the whole units in `data` and returns how many bytes those take."""
        raise NotImplementedError


class GrowingFlv(GrowingFile):
    def __init__(self, path: Path) -> None:
        super().__init__(path)
        self.video_seconds = self.audio_seconds = 0.0  # time stamps of the last packets

    def _count(self, data: bytes) -> int:
        at = 0 if self._position else _FLV_HEADER
        while at + _FLV_TAG + 4 <= len(data):
            kind, size = data[at], int.from_bytes(data[at + 1:at + 4])
            end = at + _FLV_TAG + size + 4
            if end > len(data):
                break
            seconds = (int.from_bytes(data[at + 4:at + 7]) | data[at + 7] << 24) / 1000
            if kind == _FLV_VIDEO:
                self.pictures += data[at + _FLV_TAG + 1] == _AVC_PICTURES
                self.video_seconds = seconds
            elif kind == _FLV_AUDIO:
                self.audio_seconds = seconds
            at = end
        return at if len(data) > _FLV_HEADER or self._position else 0


class GrowingTs(GrowingFile):
    def _count(self, data: bytes) -> int:
        whole = len(data) // _TS_PACKET * _TS_PACKET
        for at in range(0, whole, _TS_PACKET):
            pid, = struct.unpack_from(">H", data, at + 1)
            begins = bool(pid & 0x4000)
            self.pictures += begins and pid & 0x1FFF == _TS_VIDEO
        return whole


class RtmpReceiver(RtmpServer):
    """Keeps every stream in a file of its own, so that nothing of an earlier one is written over.
    Only the streams whose key begins with `key` are looked at."""

    def __init__(self, folder: Path, application: str = "", key: str = KEY) -> None:
        super().__init__(folder, f"record_unique on; {application}")
        self._key = key
        self._files: dict[Path, GrowingFlv] = {}

    def pictures(self) -> int:
        """Received so far, of all streams."""
        for path in self.folder.glob(f"{self._key}*.flv"):
            self._files.setdefault(path, GrowingFlv(path)).read_on()
        return sum(file.pictures for file in self._files.values())

    def newest(self) -> GrowingFlv:
        """The stream that came last, as far as `pictures` has read it."""
        return max(self._files.values(), key=lambda file: file.path.name)

    def kill(self) -> None:
        self._process.kill()
        self._process.wait()


class SrtReceiver:
    """Takes one SRT call after the other; the bytes of all of them go into files, unchanged."""

    def __init__(self, folder: Path, query: str = "") -> None:
        self.folder = folder
        self.port = free_port(socket.SOCK_DGRAM)
        self.url = f"srt://127.0.0.1:{self.port}"
        self._query = query
        self._files: list[GrowingTs] = []
        self._process: subprocess.Popen | None = None

    def __enter__(self) -> Self:
        self.start()
        return self

    def __exit__(self, *_: object) -> None:
        self.stop()

    def start(self) -> None:
        self.folder.mkdir(parents=True, exist_ok=True)
        path = self.folder / f"received-{len(self._files)}.ts"
        command = ["srt-live-transmit", "-q", "-a", "yes", f"srt://127.0.0.1:{self.port}?mode=listener{self._query}",
                   "file://con"]
        with path.open("wb") as out, (self.folder / "srt.log").open("ab") as log:
            self._process = subprocess.Popen(command, stdout=out, stderr=log)
        self._files.append(GrowingTs(path))
        wait_until(lambda: udp_bound(self.port), 20, "SRT receiver ready")

    def stop(self) -> None:
        """Says goodbye to the caller."""
        if self._process:
            end_child(self._process)

    def kill(self) -> None:
        """Vanishes without a word."""
        self._process.kill()
        self._process.wait()

    def pictures(self) -> int:
        for file in self._files:
            file.read_on()
        return sum(file.pictures for file in self._files)
