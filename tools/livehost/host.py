# SPDX-License-Identifier: GPL-2.0-or-later
"""One run of the real host: started on a screen, driven remotely, closed, its log read."""

import json
import os
import re
import shutil
import signal
import socket
import subprocess
import time
from typing import Any, NamedTuple, Self

from .folder import HostFolder
from .screen import Screen
from .waiting import end_child, wait_until

_SUCCESS, _NOT_READY = 100, 207  # obs-websocket's


class HostError(RuntimeError):
    """The host did not do what any run needs: start, answer, quit."""


class FrameCount(NamedTuple):
    """Frames since the host's start: composed late by the graphics thread, skipped by the main encoder."""

    rendered: int
    lagged: int
    encoded: int
    skipped: int

    def __sub__(self, earlier: "FrameCount") -> "FrameCount":
        return FrameCount(*(now - then for now, then in zip(self, earlier)))


class LiveHost:
    """A context manager around one host process; `start` can also be called by itself."""

    def __init__(self, folder: HostFolder, screen: Screen, profile: str, collection: str) -> None:
        self.folder = folder
        self._console, self._logs = folder.root / "console.log", folder.config / "logs"
        self._whole_log = ""
        self._names = {"profile": profile, "collection": collection}
        # Nothing of the user's own configuration, sound server or runtime folder.
        runtime = folder.root / "runtime"
        runtime.mkdir(mode=0o700, exist_ok=True)
        kept = {name: os.environ[name] for name in ("PATH", "LANG", "LC_ALL") if name in os.environ}
        self._environment = kept | {"HOME": str(folder.root), "XDG_CONFIG_HOME": str(folder.root),
                                    "XDG_RUNTIME_DIR": str(runtime)} | screen.environment
        self.process: subprocess.Popen | None = None
        self._socket, self._host_end = socket.socketpair()
        self._socket.settimeout(60)
        self._answers = self._socket.makefile("rb")
        self.longest_answer_seconds = 0.0  # as long as its event loop stood still, or longer

    def __enter__(self) -> Self:
        try:
            self.start()
        except BaseException:
            self._end()
            raise
        return self

    def __exit__(self, kind: type[BaseException] | None, *_: object) -> None:
        """Closes the host; a host that hangs or crashes over it is an error."""
        ended = self._end()
        if kind and issubclass(kind, ConnectionError) or not kind and self.process.returncode != 0:
            state = f"ended with status {self.process.returncode}" if ended else "did not quit in time"
            raise HostError(f"the host {state}\n{self._last_output()}")

    def start(self) -> None:
        """Starts the host and waits until it answers with the profile and collection asked for."""
        self.folder.install_driver()
        self.folder.remember_choice(**self._names)
        shutil.rmtree(self._logs, ignore_errors=True)
        # The missing files check stays on: without it the host leaks the empty list it made.
        command = ["obs", "--multi", "--disable-updater", "--verbose", "--profile",
                   self._names["profile"], "--collection", self._names["collection"]]
        with self._console.open("ab") as console, self._host_end:
            self.process = subprocess.Popen(
                command, env=self._environment | {"LIVEHOST_SOCKET": str(self._host_end.fileno())},
                cwd=self.folder.root, pass_fds=[self._host_end.fileno()], stdin=subprocess.DEVNULL, stdout=console,
                stderr=subprocess.STDOUT)
        if not self._answers.readline():  # written at the end of the host's start
            raise HostError(f"the host did not start\n{self._last_output()}")
        # With unknown names the host falls back silently, and all that follows would mislead.
        current = {"profile": self.request("GetProfileList")["currentProfileName"],
                   "collection": self.request("GetSceneCollectionList")["currentSceneCollectionName"]}
        if current != self._names:
            raise HostError(f"the host loaded {current} instead of {self._names}")

    def request(self, name: str, **data: Any) -> dict[str, Any]:
        """One of obs-websocket's requests; waits while the host is not ready for it."""
        def answer_when_ready() -> dict[str, Any] | None:
            answer = self.ask("request", type=name, data=data)
            return answer if answer["code"] != _NOT_READY else None
        answer = wait_until(answer_when_ready, 20, name)
        if answer["code"] != _SUCCESS:
            raise HostError(f"{name}: {answer['comment'] or 'refused'} ({answer['code']})")
        return answer["data"]

    def ask(self, what: str, /, **data: Any) -> dict[str, Any]:
        """One of the driver's own requests, JSON objects of a line each."""
        self._alive()
        begin = time.monotonic()
        self._socket.sendall(json.dumps({"do": what} | data).encode() + b"\n")
        line = self._answers.readline()
        if not line:
            raise ConnectionError(f"{what}: the host hung up")
        self.longest_answer_seconds = max(self.longest_answer_seconds, time.monotonic() - begin)
        return json.loads(line)

    def log(self) -> str:
        """This run's log; it stays readable after the end, whatever runs next on the folder."""
        return self._whole_log or "".join(path.read_text(errors="replace") for path in self._logs.glob("*.txt"))

    def wait_for_log(self, pattern: str, after: int = 0) -> re.Match:
        """Waits for a line that the pattern matches; `after` is a length of `log()` noted earlier."""
        expression = re.compile(pattern, re.MULTILINE)
        return wait_until(lambda: self._alive() and expression.search(self.log(), after), 20,
                          f"host log line /{pattern}/")

    def leaks(self) -> int | None:
        """What the host counted as leaked at its end; none when it never came that far."""
        counted = re.findall(r"Number of memory leaks: (\d+)", self.log())
        return int(counted[-1]) if counted else None

    def frames(self) -> FrameCount:
        stats = self.request("GetStats")
        return FrameCount(stats["renderTotalFrames"], stats["renderSkippedFrames"],
                          stats["outputTotalFrames"], stats["outputSkippedFrames"])

    def vertical_output(self) -> dict[str, Any] | None:
        """The module's output as the host lists it; none while no stream was ever started."""
        outputs = self.request("GetOutputList")["outputs"]
        return next((output for output in outputs if output["outputKind"].startswith("cv_vertical_mux_")), None)

    def vertical_active(self) -> bool:
        return (self.vertical_output() or {}).get("outputActive", False)

    def main_active(self) -> bool:
        return self.request("GetStreamStatus")["outputActive"]

    def _alive(self) -> bool:
        if self.process.poll() is not None:
            raise HostError(f"the host ended with status {self.process.returncode}\n{self._last_output()}")
        return True

    def _last_output(self) -> str:
        """The end of what the host wrote, with the call stack of a crash."""
        return "\n".join(self._console.read_text(errors="replace").splitlines()[-40:])

    def _end(self) -> bool:
        for end in (self._answers, self._socket, self._host_end):
            end.close()
        # Closes the main window, as a user does. SIGTERM would close every window by itself,
        # floating docks first, and the host then asks about each of them.
        ended = self.process is None or end_child(self.process, 60, signal.SIGINT)
        self._whole_log = self.log()
        return ended
