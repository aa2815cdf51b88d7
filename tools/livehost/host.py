# SPDX-License-Identifier: GPL-2.0-or-later
"""One run of the real host: started on a screen, driven remotely, closed, its log read."""

import os
import re
import signal
import subprocess
import time
from pathlib import Path
from typing import Any, NamedTuple, Self

from .folder import HostFolder
from .remote import HostError, Remote
from .screen import Screen
from .waiting import end_child, wait_until

_VERTICAL_TYPES = "cv_vertical_mux_rtmp", "cv_vertical_mux_resilient"
_MAIN_OUTPUTS = "simple_stream", "adv_stream"
# File times come from a clock that ticks more coarsely than the one Python reads.
_CLOCK_GRAIN_NS = 20_000_000


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
        self._console = folder.root / "console.log"
        self._log_path: Path | None = None
        self._whole_log = ""
        self._names = {"profile": profile, "collection": collection}
        # Nothing of the user's own configuration, sound server or runtime folder.
        runtime = folder.root / "runtime"
        runtime.mkdir(mode=0o700, exist_ok=True)
        kept = {name: os.environ[name] for name in ("PATH", "LANG", "LC_ALL") if name in os.environ}
        self._environment = kept | {"HOME": str(folder.root), "XDG_CONFIG_HOME": str(folder.root),
                                    "XDG_RUNTIME_DIR": str(runtime)} | screen.environment
        self.process: subprocess.Popen | None = None
        self.remote: Remote | None = None

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
        self.remote = Remote()
        # The log is named by the second, so a quick second run writes over the first one's.
        begin_ns = time.time_ns() - _CLOCK_GRAIN_NS
        # The missing files check stays on: without it the host leaks the empty list it made.
        command = ["obs", "--multi", "--disable-updater", "--verbose", "--profile",
                   self._names["profile"], "--collection", self._names["collection"]]
        with self._console.open("ab") as console, self.remote.host_end as host_end:
            self.process = subprocess.Popen(
                command, env=self._environment | {"LIVEHOST_SOCKET": str(host_end.fileno())}, cwd=self.folder.root,
                pass_fds=[host_end.fileno()], stdin=subprocess.DEVNULL, stdout=console, stderr=subprocess.STDOUT)
        self._log_path = wait_until(lambda: self._alive() and self._log_since(begin_ns), 60, "host log")
        wait_until(lambda: self._alive() and self.remote.ready(), 60, "host ready for requests")
        # With unknown names the host falls back silently, and all that follows would mislead.
        current = {"profile": self.request("GetProfileList")["currentProfileName"],
                   "collection": self.request("GetSceneCollectionList")["currentSceneCollectionName"]}
        if current != self._names:
            raise HostError(f"the host loaded {current} instead of {self._names}")

    def request(self, name: str, **data: Any) -> dict[str, Any]:
        self._alive()
        return self.remote.request(name, **data)

    def log(self) -> str:
        """This run's log; it stays readable after the end, whatever runs next on the folder."""
        if self._whole_log or self._log_path is None:
            return self._whole_log
        return self._log_path.read_text(errors="replace")

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
        return self._output("outputKind", *_VERTICAL_TYPES)

    def vertical_active(self) -> bool:
        return (self.vertical_output() or {}).get("outputActive", False)

    def main_active(self) -> bool:
        return (self._output("outputName", *_MAIN_OUTPUTS) or {}).get("outputActive", False)

    def _output(self, key: str, *values: str) -> dict[str, Any] | None:
        outputs = self.request("GetOutputList")["outputs"]
        return next((output for output in outputs if output[key] in values), None)

    def _log_since(self, begin_ns: int) -> Path | None:
        logs = (self.folder.config / "logs").glob("*.txt")
        return next((path for path in logs if path.stat().st_mtime_ns >= begin_ns), None)

    def _alive(self) -> bool:
        if self.process.poll() is not None:
            raise HostError(f"the host ended with status {self.process.returncode}\n{self._last_output()}")
        return True

    def _last_output(self) -> str:
        """The end of what the host wrote, with the call stack of a crash."""
        return "\n".join(self._console.read_text(errors="replace").splitlines()[-40:])

    def _end(self) -> bool:
        if self.remote:
            self.remote.close()
            self.remote = None
        # Closes the main window, as a user does. SIGTERM would close every window by itself,
        # floating docks first, and the host then asks about each of them.
        ended = self.process is None or end_child(self.process, 60, signal.SIGINT)
        self._whole_log = self.log()
        return ended
