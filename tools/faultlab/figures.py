# SPDX-License-Identifier: GPL-2.0-or-later
"""What the stage's figures of a span of time say."""

import itertools
from collections.abc import Sequence

from .stage import Event

# The frames of the lab's small canvases take a few of their 33 ms; so long a wait makes one late.
_LATE_BY_WAITING_MS = 20


def late_frames(figures: Sequence[dict[str, int]]) -> tuple[int, int]:
    """Frames that were late of themselves, and those that were late for want of a free processor: the
    graphics thread waited for one meanwhile."""
    late = waiting = 0
    for before, after in itertools.pairwise(figures):
        frames, waited = (growth(before, after, name) for name in ("lagged", "graphics_wait_ms"))
        explained = min(frames, waited // _LATE_BY_WAITING_MS)
        late, waiting = late + frames - explained, waiting + explained
    return late, waiting


def growth(before: dict[str, int], after: dict[str, int], name: str) -> int:
    """A count begins anew when the host's video is reset."""
    return after[name] - (before[name] if after[name] >= before[name] else 0)


def milliseconds(seconds: float) -> int:
    return round(1000 * seconds)


def main_pause_ms(figures: Sequence[Event]) -> int:
    """The longest time in which the main stream sent nothing new, by the quarter second."""
    longest, sent, since = 0.0, -1, 0.0
    for event in figures:
        if event["figures"].get("main_frames", 0) != sent:
            sent, since = event["figures"].get("main_frames", 0), event["at"]
        longest = max(longest, event["at"] - since)
    return milliseconds(longest)


def cores_busy(figures: Sequence[Event]) -> float:
    """Processor time of the host per second."""
    if len(figures) < 2:
        return 0.0
    first, last = figures[0], figures[-1]
    spent = last["figures"]["cpu_ms"] - first["figures"]["cpu_ms"]
    return round(spent / 1000 / (last["at"] - first["at"]), 2)
