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
        results.append(_counters(setting, runs))
    return results


def _cost(setting: Setting, runs: PacketRuns, tracks: int) -> list[Result]:
    stream = {"speed": _SPEED, "tracks": tracks, "seconds": 2 if setting.quick else 20}

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
                      ("callback_cpu_us", "writer_cpu_us", "path_cpu_us", "memory_growth_kb"))] for label in found]
    return Table(f"CPU time per packet and memory ({streamed})",
                 ["output", "callback µs", "own threads µs", "whole path µs", "memory kB"], rows,
                 "Memory: the process's peak over what it held before the output was made; the floor's is what "
                 "libobs needs for any output.")


_COUNTED = (OURS_RTMP, HOST_RTMP, OURS_SRT, HOST_SRT, FLOOR, BY_LABEL["ours, resilient, RTMP"])


def _counters(setting: Setting, runs: PacketRuns) -> Table:
    rows = []
    for candidate in _COUNTED[:2] if setting.quick else _COUNTED:
        setting.progress(f"counters: {candidate.label}")
        rows.append([candidate.label, *_count(setting, runs, candidate)])
    return Table("Counted per packet: in the callback + in the output's own threads (6 tracks)",
                 ["output", "system calls", "allocations", "copies", "bytes copied", "instructions"], rows,
                 "Copies are those by the C library's functions between libraries, without the kernel's.")


def _count(setting: Setting, runs: PacketRuns, candidate: Candidate) -> list[str]:
    seconds = 1 if setting.quick else 4
    found = {"system calls": counted.system_calls(setting, runs, candidate, seconds=seconds)}
    found |= counted.allocations_and_copies(setting, runs, candidate, seconds=seconds, speed=2)
    found["instructions"] = counted.instructions(setting, runs, candidate, seconds=seconds / 2)
    return [f"{found[name].callback:,.1f} + {found[name].writer:,.1f}"
            for name in ("system calls", "allocations", "copies", "copied_bytes", "instructions")]
