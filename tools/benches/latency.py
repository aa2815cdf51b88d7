# SPDX-License-Identifier: GPL-2.0-or-later
"""How long a packet is on its way from the packet callback to the server's door, live, and for how
long the callback holds libobs's thread."""

from collections.abc import Mapping

from .packet_runs import BY_LABEL, HOST_RTMP, HOST_SRT, PacketRuns
from .report import Result, Table
from .rounds import Runs, Spread, interleave, ratio, spread
from .setting import Setting

_HOST_OF = {label: (HOST_SRT if candidate.to == "srt" else HOST_RTMP).label for label, candidate in BY_LABEL.items()}


def measure(setting: Setting) -> list[Result]:
    with PacketRuns(setting) as runs:
        def run(label: str) -> Mapping[str, float]:
            figures = runs.run(BY_LABEL[label], through_libobs=True, seconds=2 if setting.quick else 8)
            latency, callback = figures["latency_us"], figures["callback_wall_us"]
            return {"p50": latency["p50"] / 1000, "p99": latency["p99"] / 1000, "max": latency["max"] / 1000,
                    "callback p50": callback["p50"], "callback p99.9": callback["p999"],
                    "callback max": callback["max"],
                    "callback CPU": figures["callback_cpu_us"], "path CPU": figures["path_cpu_us"],
                    "unseen": figures["packets"] - figures["arrived"], "packets": figures["packets"]}

        found = interleave(list(BY_LABEL), setting.rounds, run, lambda text: setting.progress(f"latency, {text}"))
    return [_ratios(found), _on_the_way(found), _in_the_callback(found), _cpu(found)]


def _ratios(found: Runs) -> Table:
    rows = [[label, beside, *(ratio(found, label, beside, figure) for figure in ("p50", "p99", "callback p99.9"))]
            for label, beside in _HOST_OF.items() if label != beside]
    return Table("Latency in units of the host's own output's (6 tracks, at real time)",
                 ["output", "beside", "p50", "p99", "callback p99.9"], rows)


def _on_the_way(found: Runs) -> Table:
    def most(label: str) -> Spread:
        return spread(found, label, "unseen")

    rows = [[label, *(spread(found, label, figure) for figure in ("p50", "p99", "max")), most(label).high]
            for label in found]
    packets = min(figures["packets"] for runs in found.values() for figures in runs)
    return Table(f"From the entry of the callback to the sink, ms (at least {packets} packets a round)",
                 ["output", "p50", "p99", "max", "packets not seen, most"], rows,
                 "Not seen are packets that the muxer still holds when the measured time ends.")


def _in_the_callback(found: Runs) -> Table:
    rows = [[label, *(spread(found, label, f"callback {figure}") for figure in ("p50", "p99.9", "max"))]
            for label in found]
    return Table("How long the callback holds libobs's thread, µs", ["output", "p50", "p99.9", "max"], rows)


def _cpu(found: Runs) -> Table:
    """What the packet measure finds with a faster stream, looked at live."""
    rows = [[label, *(spread(found, label, figure) for figure in ("callback CPU", "path CPU")),
             ratio(found, label, _HOST_OF[label], "path CPU")] for label in found]
    return Table("CPU time per packet at real time, µs",
                 ["output", "callback", "whole path", "whole path in units of the host's own"], rows)
