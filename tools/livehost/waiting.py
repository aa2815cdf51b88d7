# SPDX-License-Identifier: GPL-2.0-or-later
"""Waiting on conditions with deadlines, and ending the processes one has started."""

import signal
import subprocess
import time
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from typing import Any


def wait_until[Result](condition: Callable[[], Result], seconds: float, what: str) -> Result:
    """Polls the condition until it yields something true, and returns that."""
    deadline = time.monotonic() + seconds
    while not (result := condition()):
        if time.monotonic() > deadline:
            raise TimeoutError(f"{what}: not within {seconds:g} s")
        time.sleep(0.05)
    return result


def end_child(process: subprocess.Popen, seconds: float = 10, request: signal.Signals = signal.SIGTERM) -> bool:
    """Asks a child of ours to end, forces it after the deadline; tells whether asking was enough."""
    if process.poll() is None:
        process.send_signal(request)
    try:
        process.wait(seconds)
        return True
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
        return False


@contextmanager
def running(*command: str, **options: Any) -> Iterator[subprocess.Popen]:
    """A child process for the length of the block."""
    with subprocess.Popen(command, **options) as process:
        try:
            yield process
        finally:
            end_child(process)
