# SPDX-License-Identifier: GPL-2.0-or-later
"""One run of a row: its folder, its deadline, the processes that it starts."""

import os
import subprocess
import threading
from contextlib import ExitStack
from pathlib import Path
from typing import Self

from livehost.screen import VirtualScreen
from livehost.waiting import end_child

from .row import Result, Row

_PROJECT = Path(__file__).resolve().parents[2]


class Trial:
    """A context; at its end, and at the deadline, every program of the row is ended."""

    def __init__(self, row: Row, policy: str, folder: Path, screen: VirtualScreen, preset: str,
                 options: dict[str, float]) -> None:
        self.policy, self.folder, self.options = policy, folder, options
        self.seconds = row.seconds
        self.screen = screen
        self.timed_out = False
        self.preset = preset
        self._row = row
        self._programs: list[subprocess.Popen] = []
        self._resources = ExitStack()
        self._timer = threading.Timer(self.seconds, self._time_out)

    def __enter__(self) -> Self:
        self.folder.mkdir(parents=True)
        self._timer.start()
        return self

    def __exit__(self, *_: object) -> None:
        self._timer.cancel()
        for process in reversed(self._programs):
            end_child(process, 5)

    def play(self) -> Result:
        return self._row.play(self)

    def start_program(self, name: str, *arguments: str, **variables: str) -> subprocess.Popen:
        """A program of the build, its input and output to be used by the row; what it says beside
        goes into the row's folder. `variables` goes into its environment."""
        path = next((_PROJECT / "build" / self.preset / "tools/faultlab").glob(f"*/{name}"))
        with (self.folder / f"{name}.err").open("ab") as errors:
            process = subprocess.Popen([str(path), *arguments], cwd=self.folder, text=True, bufsize=1,
                                       env=os.environ | self.screen.environment | variables,
                                       stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=errors)
        self._programs.append(process)
        return process

    def _time_out(self) -> None:
        self.timed_out = True
        for process in self._programs:
            if process.poll() is None:
                process.kill()
