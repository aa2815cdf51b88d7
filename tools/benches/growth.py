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
    _Sweep("megabits", "Mbit/s of video", (1, 10, 50), {"speed": 1, "seconds": 3}),
    _Sweep("fps", "frames a second", (30, 60, 120), {"speed": 3, "seconds": 6}),
)


def measure(setting: Setting) -> list[Result]:
    results: list[Result] = []
    with PacketRuns(setting) as runs:
        for sweep in _SWEEPS:
            found = _run(setting, runs, sweep)
            results += [_table(sweep, found), _plot(sweep, found)]
            if sweep.option == "tracks" and not setting.quick:
                results = [_tracks(found), _tracks_in_instructions(setting, runs), *results]
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
        return {"packet": figures["path_cpu_us"], "stream": figures["path_cpu_us"] * per_second}

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


def _share_of_six(costs: Mapping[int, float]) -> tuple[float, float]:
    """By a line through all but the largest number of tracks: the sound's share with that in units of
    one track's share, and that share."""
    *fewer, most = costs
    each, video = statistics.linear_regression(fewer, [costs[tracks] for tracks in fewer])
    return (costs[most] - video) / each, each


def _tracks(found: Mapping[int, Runs]) -> Table:
    rows = []
    for label in _CANDIDATES:
        rounds = zip(*([run["stream"] for run in found[tracks][label]] for tracks in found), strict=True)
        shares, each = zip(*(_share_of_six(dict(zip(found, costs))) for costs in rounds))
        rows.append([label, Spread.of(shares), Spread.of(each)])
    return Table("Cost of tracks: the sound's share with six in units of one track's (linear: 6)",
                 ["output", "share of six by share of one", "CPU ms per second for a track more"], rows,
                 "One track's share is the slope of a line through 1, 2 and 4 tracks.")


def _tracks_in_instructions(setting: Setting, runs: PacketRuns) -> Table:
    """As _tracks. Only over RTMP: libsrt's threads work by the clock, which valgrind slows."""
    rows = []
    for candidate in (OURS_RTMP, HOST_RTMP):
        costs = {}
        for tracks in _SWEEPS[0].values:
            setting.progress(f"growth, instructions: {candidate.label}, {tracks}")
            found = counted.instructions(setting, runs, candidate, tracks=tracks, seconds=1)
            costs[tracks] = (found.callback + found.writer) * found.packets / 1e6
        rows.append([candidate.label, *costs.values(), _share_of_six(costs)[0]])
    return Table("Cost of tracks in instructions, millions per second of the stream (one run each)",
                 ["output", *(f"tracks: {tracks}" for tracks in _SWEEPS[0].values), "share of six by share of one"],
                 rows)
