# SPDX-License-Identifier: GPL-2.0-or-later
"""What no row may find with the resilient policy, whatever its fault is."""

from collections.abc import Iterator

from .row import Result
from .stage import Stage

_LONGEST_PAUSE_MS = 1000
_LONGEST_STOP_MS = 1000
# Of the whole host, whose renderer and encoders take some at will.
_MOST_GROWTH_KB = 64 * 1024
_MOST_LATE_SHARE = 0.01
_MOST_CORES_MORE = 0.5


def broken_promises(result: Result, one_stop: bool) -> Iterator[str]:
    """Those that the figures tell; `one_stop` when there was just one stream."""
    if "process ended" in result.seen:
        return  # which is said already
    more = result.more
    if result.ui_pause_ms > _LONGEST_PAUSE_MS:
        yield f"the UI thread stood still for {result.ui_pause_ms} ms"
    if more["memory_growth_kb"] > _MOST_GROWTH_KB:
        yield f"memory grew by {more['memory_growth_kb'] // 1024} MB"
    if result.main_lagged > _MOST_LATE_SHARE * more["main_drawn"]:
        yield f"{result.main_lagged} of {more['main_drawn']} frames were late"
    before, after = more["cpu_cores"]
    if before and after - before > _MOST_CORES_MORE:
        yield f"{after} cores busy instead of {before}"
    if more["main_pause_ms"] > _LONGEST_PAUSE_MS:
        yield f"the main stream stood still for {more['main_pause_ms']} ms"
    if more["stop_ms"] is not None and more["stop_ms"] > _LONGEST_STOP_MS:
        yield f"the stop took {more['stop_ms']} ms"
    if one_stop and len(result.stops) != 1:
        yield f"{len(result.stops)} stop signals: {result.stops}"
    if more["leaks"] != 0:
        yield f"leaks at the end: {more['leaks']}"


def told_secrets(stage: Stage, secrets: tuple[str, ...]) -> Iterator[str]:
    """Lines of the log, FFmpeg's included, error texts and boxes in which a secret stands."""
    for field in ("log", "message", "box"):
        for event in stage.all(field):
            if any(secret in event[field] for secret in secrets):
                yield f"a secret is told: {event[field]}"
