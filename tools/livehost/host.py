# SPDX-License-Identifier: GPL-2.0-or-later
"""One run of the real host: started on a screen, driven remotely, ended politely, its log read."""

import os
import re
import signal
import subprocess
import time
from collections.abc import Mapping
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Self

from .folder import HostFolder
from .remote import Remote
from .screen import OwnScreen, VirtualScreen
from .waiting import end_child, wait_until

OUTPUT_TYPES = "cv_vertical_mux_rtmp", "cv_vertical_mux_resilient"
_MAIN_OUTPUTS = "simple_stream", "adv_stream"

# File times come from a clock that ticks more coarsely than the one Python reads.
_CLOCK_GRAIN_NS = 20_000_000


class HostError(RuntimeError):
    """The host did not do what any run needs: start, answer, quit."""


@dataclass(frozen=True)
class FrameCount:
    """Frames since the host's start: composed late by the graphics thread, skipped by the main encoder."""

    rendered: int
    lagged: int
    encoded: int
    skipped: int

    def __sub__(self, earlier: "FrameCount") -> "FrameCount":
        return FrameCount(self.rendered - earlier.rendered, self.lagged - earlier.lagged,
                          self.encoded - earlier.encoded, self.skipped - earlier.skipped)


class LiveHost:
    """A context manager around one host process; `start` and `quit` can also be called by hand."""

    def __init__(self, folder: HostFolder, screen: VirtualScreen | OwnScreen, profile: str, collection: str,
                 environment: Mapping[str, str] | None = None) -> None:
        self.folder = folder
        self.console = folder.root / "console.log"
        self._log_path: Path | None = None
        self._whole_log = ""
        self._names = {"profile": profile, "collection": collection}
        self._environment = self._base_environment() | screen.environment | dict(environment or {})
        self._process: subprocess.Popen | None = None
        self._remote: Remote | None = None

    def __enter__(self) -> Self:
        try:
            self.start()
        except BaseException:
            self._end()
            raise
        return self

    def __exit__(self, kind: type[BaseException] | None, *_: object) -> None:
        if kind is None:
            self.quit()
        else:
            self._end()
            if issubclass(kind, ConnectionError):
                raise HostError(f"the host ended by itself with status {self._process.returncode}\n{self._last_words()}")

    def start(self, seconds: float = 60) -> None:
        """Starts the host and waits until it answers with the profile and collection asked for."""
        self.folder.install_driver()
        self.folder.remember_choice(**self._names)
        self._remote = Remote()
        # The log is named by the second, so a quick second run writes over the first one's.
        begin_ns = time.time_ns() - _CLOCK_GRAIN_NS
        # The missing files check stays on: without it the host leaks the empty list it made.
        command = ["obs", "--multi", "--disable-updater", "--verbose", "--profile",
                   self._names["profile"], "--collection", self._names["collection"]]
        with self.console.open("ab") as console:
            self._process = subprocess.Popen(
                command, env=self._environment | self._remote.environment, cwd=self.folder.root,
                pass_fds=[self._remote.inherited], stdin=subprocess.DEVNULL, stdout=console, stderr=subprocess.STDOUT)
        self._remote.host_started()
        self._log_path = wait_until(lambda: self._alive() and self._log_since(begin_ns), seconds, "host log")
        wait_until(lambda: self._alive() and self._remote.ready(), seconds, "host ready for requests")
        self._check_names()

    def quit(self, seconds: float = 60) -> None:
        """Ends the host as closing its window does; a host that hangs or crashes over it is an error."""
        if self._process is None:
            raise HostError("the host was not started")
        if not self._end(seconds):
            raise HostError(f"the host did not quit within {seconds:g} s")
        if self._process.returncode != 0:
            raise HostError(f"the host quit with status {self._process.returncode}\n{self._last_words()}")

    def wait_closed(self) -> int:
        """Waits, however long it takes, until the person closes the host."""
        return self._process.wait()

    def request(self, name: str, **data: Any) -> dict[str, Any]:
        self._alive()
        return self._remote.request(name, **data)

    @property
    def remote(self) -> Remote:
        return self._remote

    @property
    def pid(self) -> int:
        return self._process.pid

    def log(self) -> str:
        """This run's log; it stays readable after the end, whatever runs next on the folder."""
        if self._whole_log or self._log_path is None:
            return self._whole_log
        return self._log_path.read_text(errors="replace")

    def wait_for_log(self, pattern: str, seconds: float = 20, after: int = 0) -> re.Match:
        """Waits for a line that the pattern matches; `after` is a length of `log()` noted earlier."""
        expression = re.compile(pattern, re.MULTILINE)
        return wait_until(lambda: self._alive() and expression.search(self.log(), after), seconds,
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
        return self._output("outputKind", *OUTPUT_TYPES)

    def vertical_active(self) -> bool:
        return (self.vertical_output() or {}).get("outputActive", False)

    def main_active(self) -> bool:
        return (self._output("outputName", *_MAIN_OUTPUTS) or {}).get("outputActive", False)

    def _output(self, key: str, *values: str) -> dict[str, Any] | None:
        outputs = self.request("GetOutputList")["outputs"]
        return next((output for output in outputs if output[key] in values), None)

    def _base_environment(self) -> dict[str, str]:
        """Nothing of the person's own configuration, sound server or runtime folder."""
        root = self.folder.root
        runtime = root / "runtime"
        runtime.mkdir(mode=0o700, exist_ok=True)
        kept = {name: os.environ[name] for name in ("PATH", "LANG", "LC_ALL") if name in os.environ}
        return kept | {"HOME": str(root), "XDG_CONFIG_HOME": str(root), "XDG_RUNTIME_DIR": str(runtime)}

    def _log_since(self, begin_ns: int) -> Path | None:
        logs = self.folder.logs.glob("*.txt")
        return next((path for path in logs if path.stat().st_mtime_ns >= begin_ns), None)

    def _alive(self) -> bool:
        if self._process is None or self._process.poll() is not None:
            status = self._process.returncode if self._process else "not started"
            raise HostError(f"the host is not running (status {status})\n{self._last_words()}")
        return True

    def _last_words(self) -> str:
        """The end of what the host wrote, with the call stack of a crash."""
        return "\n".join(self.console.read_text(errors="replace").splitlines()[-40:])

    def _check_names(self) -> None:
        """Unknown names make the host fall back silently, and everything after would mislead."""
        current = {"profile": self.request("GetProfileList")["currentProfileName"],
                   "collection": self.request("GetSceneCollectionList")["currentSceneCollectionName"]}
        if current != self._names:
            raise HostError(f"the host loaded {current} instead of {self._names}")

    def _end(self, seconds: float = 30) -> bool:
        if self._remote:
            self._remote.close()
            self._remote = None
        # Closes the main window, as a person does. SIGTERM would close every window by itself,
        # floating docks first, and the host then asks about each of them.
        ended = self._process is None or end_child(self._process, seconds, signal.SIGINT)
        self._whole_log = self.log()
        return ended
