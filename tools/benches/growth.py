# SPDX-License-Identifier: GPL-2.0-or-later
"""How the cost of packets grows with tracks, bitrate and frame rate."""

import statistics
from collections.abc import Mapping, Sequence
from dataclasses import dataclass

from . import counted
from .packet_runs import HOST_RTMP, HOST_SRT, OURS_RTMP, OURS_SRT, PacketRuns
from .report import Plot, Result, Table
from .rounds import Runs, Spread, interleave, spread
from .setting import Setting

_CANDIDATES = {candidate.label: candidate for candidate in (OURS_RTMP, HOST_RTMP, OURS_SRT, HOST_SRT)}


@dataclass(frozen=True)
class _Sweep:
    """One property of the stream that grows while the others stay."""

    option: str  # packet_bench's
    title: str
    values: Sequence[int]
    stream: Mapping[str, object]


_SWEEPS = (
    _Sweep("tracks", "tracks of sound", (1, 2, 4, 6), {"speed": 5, "seconds": 10}),
    # At one speed, since what SRT does by the clock falls on fewer packets at a higher one.
    _Sweep("megabits", "Mbit/s of video", (1, 4, 20, 50), {"speed": 1, "seconds": 3}),
    _Sweep("fps", "frames a second", (30, 60, 120), {"speed": 3, "seconds": 6}),
)


def measure(setting: Setting) -> list[Result]:
    results: list[Result] = []
    with PacketRuns(setting) as runs:
        for sweep in _SWEEPS:
            found = _run(setting, runs, sweep)
            results += [_table(sweep, found), _plot(sweep, found)]
            if sweep.option == "tracks":
                results.insert(0, _tracks(found))
        if not setting.quick:
            results.insert(0, _tracks_in_instructions(setting, runs))
    return results


def _run(setting: Setting, runs: PacketRuns, sweep: _Sweep) -> dict[int, Runs]:
    values = (sweep.values[0], sweep.values[-1]) if setting.quick else sweep.values
    stream = dict(sweep.stream) | ({"seconds": 2} if setting.quick else {})
    # All in turns, also the values: their comparison is what counts here.
    names = {f"{label}, {value}": (label, value) for value in values for label in _CANDIDATES}

    def run(name: str) -> Mapping[str, float]:
        label, value = names[name]
        figures = runs.run(_CANDIDATES[label], **stream | {sweep.option: value})
        per_second = figures["packets"] / stream["seconds"] / 1000
        return {"packet": figures["path_cpu_us"], "callback": figures["callback_cpu_us"],
                "stream": figures["path_cpu_us"] * per_second}

    found = interleave(list(names), setting.rounds, run, lambda text: setting.progress(f"growth, {sweep.title}: {text}"))
    return {value: {label: found[f"{label}, {value}"] for label in _CANDIDATES} for value in values}


def _table(sweep: _Sweep, found: Mapping[int, Runs]) -> Table:
    rows = [[str(value), *(spread(found[value], label, "packet") for label in _CANDIDATES)] for value in found]
    return Table(f"Whole path's CPU time per packet, µs, by {sweep.title}", [sweep.title, *_CANDIDATES], rows)


def _plot(sweep: _Sweep, found: Mapping[int, Runs]) -> Plot:
    lines = {label: [(value, spread(found[value], label, "stream").median) for value in found]
             for label in _CANDIDATES}
    return Plot(f"growth-{sweep.option}", f"CPU time for a second of the stream, by {sweep.title}", sweep.title,
                "CPU ms per second of the stream", lines)


def _tracks(found: Mapping[int, Runs]) -> Table:
    """Round by round a line through cost and tracks: what it costs at no track is the video's share."""
    rows = []
    for label in _CANDIDATES:
        shares, each = [], []
        for costs in zip(*([run["stream"] for run in found[tracks][label]] for tracks in found), strict=True):
            slope, video = statistics.linear_regression(list(found), costs)
            shares.append((costs[-1] - video) / (costs[0] - video))
            each.append(slope)
        rows.append([label, Spread.of(shares), Spread.of(each)])
    return Table("Cost of tracks: the sound's share with six in units of its share with one (linear: 6)",
                 ["output", "share of 6 by share of 1", "CPU ms per second for a track more"], rows)


def _tracks_in_instructions(setting: Setting, runs: PacketRuns) -> Table:
    """As _tracks, by a count that hardly varies: one round is enough, and of few tracks."""
    rows = []
    for label, candidate in _CANDIDATES.items():
        costs = []
        for tracks in (1, 2, 6):
            setting.progress(f"growth, instructions: {label}, {tracks}")
            found = counted.instructions(setting, runs, candidate, tracks=tracks, seconds=1)
            costs.append((found.callback + found.writer) * found.packets)
        one, two, six = costs
        share = two - one
        rows.append([label, *(cost / 1e6 for cost in costs), (six - one + share) / share])
    return Table("Cost of tracks in instructions: the sound's share with six in units of its share with one",
                 ["output", "1 track, millions a second", "2 tracks", "6 tracks", "share of 6 by share of 1"], rows,
                 "The share of one track is what the second one adds.")
