# SPDX-License-Identifier: GPL-2.0-or-later
"""What every measure is given: how much to do, and where."""

import json
import os
import subprocess
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from livehost.screen import VirtualScreen


@dataclass(frozen=True)
class Setting:
    rounds: int  # of every candidate
    quick: bool  # only to see that all works: the figures say nothing
    root: Path  # an empty folder of the measure's own
    build: Path  # the built programs
    screen: VirtualScreen

    def progress(self, text: str) -> None:
        print(f"    {text}", flush=True)

    def run_program(self, name: str, *arguments: object, seconds: float = 300, under: Sequence[str] = (),
                    **variables: str) -> dict[str, Any]:
        """Runs a program of bench/ on the screen; returns the JSON object that is its last line.
        One that fails or takes longer is an error. `under` is a command that runs it, such as a
        tracer's; `variables` goes into its environment."""
        path = self.build / "bench" / name
        answer = subprocess.run([*under, str(path), *map(str, arguments)], cwd=self.root, text=True, timeout=seconds,
                                env=os.environ | self.screen.environment | variables, capture_output=True,
                                check=False)
        if answer.returncode != 0:
            raise RuntimeError(f"{name} ended with status {answer.returncode}\n{answer.stderr[-4000:]}")
        return json.loads(answer.stdout.splitlines()[-1])
