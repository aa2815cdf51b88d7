# SPDX-License-Identifier: GPL-2.0-or-later
"""Real servers on the loopback that keep what they receive byte for byte."""

import re
import socket
import subprocess
from pathlib import Path
from typing import Self

from .waiting import end_child, wait_until


def free_port(kind: socket.SocketKind = socket.SOCK_STREAM) -> int:
    """A port that is free now; the network may be shared with the whole machine."""
    with socket.socket(socket.AF_INET, kind) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def _sockets(port: int, *options: str) -> int:
    """Counts the local sockets. A connection as a probe would be taken for a caller."""
    command = ["ss", "-Hn", *options, f"sport = :{port}"]
    return len(subprocess.run(command, capture_output=True, check=True).stdout.splitlines())


class _Server:
    """A server process on a port for the length of a block; may be started again after it has ended."""

    def __init__(self, folder: Path, kind: socket.SocketKind) -> None:
        folder.mkdir(parents=True, exist_ok=True)
        self.folder = folder
        self.port = free_port(kind)
        self._listening = "-ul" if kind == socket.SOCK_DGRAM else "-tl"
        self._process: subprocess.Popen | None = None

    def __enter__(self) -> Self:
        self.start()
        return self

    def __exit__(self, *_: object) -> None:
        self.stop()

    def start(self) -> None:
        """Does nothing while it runs."""
        if self._process and self._process.poll() is None:
            return
        process = self._process = self._launch()
        wait_until(lambda: process.poll() is not None or _sockets(self.port, self._listening), 20, "server ready")
        if process.poll() is not None:
            raise RuntimeError(f"{process.args} did not start, see {self.folder}")

    def stop(self) -> None:
        end_child(self._process)

    def kill(self) -> None:
        self._process.kill()
        self._process.wait()


class RtmpServer(_Server):
    """nginx with its RTMP module."""

    def __init__(self, folder: Path) -> None:
        super().__init__(folder, socket.SOCK_STREAM)
        self.url = f"rtmp://127.0.0.1:{self.port}/live"

    def _launch(self) -> subprocess.Popen:
        built = subprocess.run(["nginx", "-V"], capture_output=True, text=True, check=True).stderr
        modules = re.search(r"--modules-path=(\S+)", built)
        values = {"MODULE": f"{modules[1] if modules else '/usr/lib/nginx/modules'}/ngx_rtmp_module.so",
                  "PORT": str(self.port), "FOLDER": str(self.folder)}
        template = Path(__file__).with_name("nginx.conf").read_text()
        config = self.folder / "nginx.conf"
        config.write_text(re.sub("@([A-Z]+)@", lambda name: values[name[1]], template))
        return subprocess.Popen(["nginx", "-e", self.folder / "error.log", "-p", self.folder, "-c", config])

    def recordings(self, key: str = "*") -> list[Path]:
        """Oldest first."""
        return sorted(self.folder.glob(f"{key}-*.flv"))

    def recording(self, key: str) -> Path:
        """The newest; complete when the server is idle."""
        self.wait_idle()
        return self.recordings(key)[-1]

    def wait_idle(self) -> None:
        states = "state", "established", "state", "close-wait"
        wait_until(lambda: not _sockets(self.port, "-t", *states), 20, "RTMP server idle")


class SrtListener(_Server):
    """Takes a call, or with `reconnect` one after the other, and stores the bytes unchanged: a muxer would renumber
    timestamps and add delimiters, and so repair the very faults that are looked for. By default SRT waits for packets
    that a busy machine delays, instead of leaving them out."""

    def __init__(self, folder: Path, options: str = "&tlpktdrop=no", reconnect: bool = False) -> None:
        super().__init__(folder, socket.SOCK_DGRAM)
        self.url = f"srt://127.0.0.1:{self.port}"
        self._command = ["srt-live-transmit", "-q", "-a", "yes" if reconnect else "no",
                         f"{self.url}?mode=listener{options}", "file://con"]

    def _launch(self) -> subprocess.Popen:
        with (self.folder / f"{len(self.recordings())}.ts").open("wb") as output:
            return subprocess.Popen(self._command, stdout=output)

    def recordings(self) -> list[Path]:
        return sorted(self.folder.glob("*.ts"))

    def recording(self) -> Path:
        """That of the one call, complete once the caller has hung up."""
        wait_until(lambda: self._process.poll() is not None, 20, "SRT caller hung up")
        return self.recordings()[-1]
