# SPDX-License-Identifier: GPL-2.0-or-later
"""What a packet costs: CPU time, memory, system calls, allocations, copies and instructions."""

from collections.abc import Mapping

from . import counted
from .packet_runs import ALL, BY_LABEL, FLOOR, HOST_RTMP, HOST_SRT, OURS_RTMP, OURS_SRT, Candidate, PacketRuns
from .report import Result, Table
from .rounds import Runs, interleave, ratio, spread
from .setting import Setting

# Whom a user would take instead.
_BESIDE = {candidate.label: (HOST_SRT if candidate.to == "srt" else HOST_RTMP).label for candidate in ALL}

_SPEED = 5  # in times of live: more packets in the same time, and none waits for the one before


def measure(setting: Setting) -> list[Result]:
    results: list[Result] = []
    with PacketRuns(setting) as runs:
        for tracks in (6, 1):
            results += _cost(setting, runs, tracks)
        results += _counters(setting, runs)
    return results


def _cost(setting: Setting, runs: PacketRuns, tracks: int) -> list[Result]:
    stream = {"speed": _SPEED, "tracks": tracks, "seconds": 2 if setting.quick else 10}

    def run(label: str) -> Mapping[str, float]:
        return runs.run(BY_LABEL[label], **stream)

    found = interleave(list(BY_LABEL), setting.rounds, run,
                       lambda text: setting.progress(f"cost, tracks: {tracks}, {text}"))
    packets = found[OURS_RTMP.label][0]["packets"]
    streamed = f"tracks: {tracks}, packets a round: {packets:,}"
    return [_ratios(found, streamed), _absolute(found, streamed)]


def _ratios(found: Runs, streamed: str) -> Table:
    rows = []
    for label, beside in _BESIDE.items():
        if label == beside:
            continue
        rows.append([label, beside, ratio(found, label, beside, "callback_cpu_us"),
                     ratio(found, label, beside, "path_cpu_us"),
                     None if label == FLOOR.label else ratio(found, label, FLOOR.label, "path_cpu_us")])
    return Table(f"CPU time per packet, in units of another output's ({streamed})",
                 ["output", "beside", "callback", "whole path", "whole path beside the floor"], rows)


def _absolute(found: Runs, streamed: str) -> Table:
    rows = [[label, *(spread(found, label, figure) for figure in
                      ("callback_cpu_us", "writer_cpu_us", "path_cpu_us", "memory_growth_kb", "late_ms"))] for label in found]
    return Table(f"CPU time per packet and memory ({streamed})",
                 ["output", "callback µs", "own threads µs", "whole path µs", "memory kB", "handed over late, ms"], rows,
                 "Memory: the process's peak over what it held before the output was made; the floor's is what "
                 "libobs needs for any output. Late: the packet that was handed over the longest after its time.")


_COUNTED = (OURS_RTMP, HOST_RTMP, OURS_SRT, HOST_SRT, FLOOR, BY_LABEL["ours, resilient, RTMP"])


_COUNTED_ROUNDS = 2  # counts hardly vary
_KINDS = ("system calls", "allocations", "copies", "bytes copied", "instructions")
_PLACES = ("in the callback", "in the output's own threads")


def _counters(setting: Setting, runs: PacketRuns) -> list[Result]:
    labels = [candidate.label for candidate in (_COUNTED[:2] if setting.quick else _COUNTED)]
    found = interleave(labels, 1 if setting.quick else _COUNTED_ROUNDS,
                       lambda label: _count(setting, runs, BY_LABEL[label]),
                       lambda text: setting.progress(f"counters, {text}"))
    return [Table(f"Counted per packet {place} (6 tracks)", ["output", *_KINDS],
                  [[label, *(spread(found, label, f"{kind} {place}") for kind in _KINDS)] for label in labels],
                  "Copies are those by the C library's functions between libraries, without the kernel's.")
            for place in _PLACES]


def _count(setting: Setting, runs: PacketRuns, candidate: Candidate) -> Mapping[str, float]:
    seconds = 1 if setting.quick else 2
    counts = counted.allocations_and_copies(setting, runs, candidate, seconds=seconds, speed=2)
    by_kind = dict(zip(_KINDS, (
        counted.system_calls(setting, runs, candidate, seconds=seconds), counts["allocations"], counts["copies"],
        counts["copied_bytes"], counted.instructions(setting, runs, candidate, seconds=seconds / 2))))
    return {f"{kind} {place}": number for kind, count in by_kind.items()
            for place, number in zip(_PLACES, (count.callback, count.writer))}
