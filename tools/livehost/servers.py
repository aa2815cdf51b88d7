# SPDX-License-Identifier: GPL-2.0-or-later
"""Real receivers on the loopback that keep what they get byte for byte."""

import re
import socket
import subprocess
from pathlib import Path
from typing import Self

from .sockets import free_port, tcp_clients, tcp_listens, udp_bound
from .waiting import end_child, wait_until

_NGINX_CONFIG = """\
load_module {modules}/ngx_rtmp_module.so;
daemon off;
master_process off;
pid {folder}/nginx.pid;
error_log {folder}/nginx.log info;
events {{ worker_connections 64; }}
rtmp {{
  access_log off;
  server {{
    listen 127.0.0.1:{port};
    chunk_size 4096;
    application live {{
      live on;
      record {record};
      record_path {folder};
      {application}
    }}
  }}
}}
"""


def _module_folder() -> str:
    answer = subprocess.run(["nginx", "-V"], capture_output=True, text=True, check=True).stderr
    found = re.search(r"--modules-path=(\S+)", answer)
    return found.group(1) if found else "/usr/lib/nginx/modules"


class RtmpServer:
    """nginx with its RTMP module; each stream key is recorded into the folder as KEY.flv, where
    `record` says so. `application` is further lines for the application "live"."""

    def __init__(self, folder: Path, application: str = "", record: str = "all") -> None:
        self.folder = folder
        self._record = record
        self._application = application
        self.port = free_port()
        self.url = f"rtmp://127.0.0.1:{self.port}/live"
        self._process: subprocess.Popen | None = None

    def __enter__(self) -> Self:
        self.start()
        return self

    def __exit__(self, *_: object) -> None:
        self.stop()

    def start(self) -> None:
        """Starts the server, or starts it again on the same port."""
        self.folder.mkdir(parents=True, exist_ok=True)
        config = self.folder / "nginx.conf"
        config.write_text(_NGINX_CONFIG.format(modules=_module_folder(), folder=self.folder, port=self.port,
                                               record=self._record, application=self._application))
        log = str(self.folder / "nginx.log")
        self._process = subprocess.Popen(["nginx", "-e", log, "-p", str(self.folder), "-c", str(config)])
        wait_until(lambda: self._process.poll() is not None or tcp_listens(self.port), 20, "RTMP server ready")
        if self._process.poll() is not None:
            raise RuntimeError(f"the RTMP server did not start, see {log}")

    def stop(self) -> None:
        if self._process:
            end_child(self._process)
            self._process = None

    def recording(self, key: str) -> Path:
        return self.folder / f"{key}.flv"

    def wait_idle(self, seconds: float = 20) -> None:
        """Waits until nobody is connected: every recording is then complete."""
        wait_until(lambda: tcp_clients(self.port) == 0, seconds, "RTMP server idle")


class SrtListener:
    """Takes one SRT call and stores its bytes unchanged; `start` again for a further call.

    The bytes are not remuxed: a muxer would renumber timestamps and add delimiters by itself,
    and so repair the very faults that are looked for.
    """

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        self.port = free_port(socket.SOCK_DGRAM)
        self.url = f"srt://127.0.0.1:{self.port}"
        self.calls: list[Path] = []
        self._process: subprocess.Popen | None = None

    def __enter__(self) -> Self:
        self.start()
        return self

    def __exit__(self, *_: object) -> None:
        self.stop()

    def start(self) -> Path:
        """Waits for a caller from now on; returns the file that its stream goes to."""
        self.stop()
        self.folder.mkdir(parents=True, exist_ok=True)
        self.calls.append(self.folder / f"call-{len(self.calls)}.ts")
        command = ["ffmpeg", "-v", "error", "-nostdin", "-f", "data", "-i", f"{self.url}?mode=listener",
                   "-map", "0", "-c", "copy", "-flush_packets", "1", "-f", "data", str(self.calls[-1])]
        with (self.folder / "srt.log").open("ab") as log:
            self._process = subprocess.Popen(command, stdout=log, stderr=log)
        wait_until(lambda: udp_bound(self.port), 20, "SRT listener ready")
        return self.calls[-1]

    def wait_hung_up(self, seconds: float = 20) -> Path:
        """Waits until the caller has hung up and the file is complete."""
        wait_until(lambda: self._process.poll() is not None, seconds, "SRT caller hung up")
        return self.calls[-1]

    def stop(self) -> None:
        if self._process:
            end_child(self._process)
            self._process = None
