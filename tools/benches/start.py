# SPDX-License-Identifier: GPL-2.0-or-later
"""From the call that starts the vertical stream to the first byte at the server, and what the
encoders that fail before the one that works take of it."""

import statistics
from collections.abc import Mapping, Sequence
from dataclasses import dataclass, field

from .report import Result, Table
from .rounds import Figures, Runs, Spread, interleave, ratio, spread
from .setting import Setting

_HARDWARE = ("jim_nvenc", "jim_nvenc_h264", "h264_amf", "obs_qsv11", "obs_qsv11_v2")
_SOFTWARE = "obs_x264"
_RETURN, _BYTE, _OPEN = "return_ms", "first_byte_ms", "opened_ms"
_LAST, _FAILING = "last_ms", "failing_ms"


@dataclass(frozen=True)
class Outcome:
    """What the fallback meets: the encoders that libobs is told of, and the one that starts the stream."""

    name: str
    starts_with: str | None
    preferred: str = "auto"
    key: str = "key"
    encoders: Mapping[str, str] = field(default_factory=dict)
    failing: str = ""  # how the candidates before it fail


OUTCOMES = (
    Outcome("x264 preferred, works", _SOFTWARE, preferred="x264"),
    Outcome("first hardware encoder works", "jim_nvenc", encoders={"jim_nvenc": "works"}),
    Outcome("third hardware encoder works", "h264_amf", encoders={"h264_amf": "works"}),
    Outcome("last hardware encoder works", "obs_qsv11_v2", encoders={"obs_qsv11_v2": "works"}),
    Outcome("no hardware encoder known, x264 works", _SOFTWARE, failing="libobs has no encoder of that id"),
    Outcome("hardware encoders do not open, x264 works", _SOFTWARE, encoders=dict.fromkeys(_HARDWARE, "fails"),
            failing="the encoder does not open"),
    Outcome("hardware encoders refused, x264 works", _SOFTWARE, encoders=dict.fromkeys(_HARDWARE, "refused"),
            failing="libobs makes no such encoder"),
    Outcome("none can start (no stream key)", None, key="", failing="the output does not start"),
)


def run_once(setting: Setting, outcome: Outcome, starts: int) -> Figures:
    """Medians over the starts of one process but for the first, which also loads what later ones find in memory."""
    answer = setting.run_program("start/start_bench", outcome.preferred, outcome.key, starts + 1,
                                 *(f"{name}={kind}" for name, kind in outcome.encoders.items()))["starts"]
    assert len(answer) == starts + 1
    for start in answer:
        last = start["candidates"][-1]["id"]
        if start["started"] != (outcome.starts_with is not None) or outcome.starts_with not in (None, last):
            raise RuntimeError(f"{outcome.name}: started {start['started']}, {last} last")
    figures = {name: _median(answer[1:], name) for name in (_RETURN, _BYTE, _OPEN) if name in answer[0]}
    figures["attempts"] = len(answer[0]["candidates"])
    if outcome.starts_with:
        figures[_LAST] = statistics.median(start["candidates"][-1]["ms"] for start in answer[1:])
    failing = [candidate["ms"] for start in answer[1:]
               for candidate in start["candidates"][:-1 if outcome.starts_with else None]]
    return figures | ({_FAILING: statistics.median(failing)} if failing else {})


def _median(starts: Sequence[dict], name: str) -> float:
    return statistics.median(start[name] for start in starts)


def measure(setting: Setting) -> list[Result]:
    by_name = {outcome.name: outcome for outcome in OUTCOMES}
    starts = 1 if setting.quick else 5
    runs = interleave(list(by_name), setting.rounds, lambda name: run_once(setting, by_name[name], starts),
                      setting.progress)
    base = OUTCOMES[0].name
    return [
        Table("Start: against x264 alone", ["outcome", "candidates tried", "call returns", "first byte at the server"],
              [[name, runs[name][0]["attempts"], *(_ratio(runs, name, base, figure) for figure in (_RETURN, _BYTE))]
               for name in by_name]),
        Table("Start: ms from the call", ["outcome", "call returns", "first byte at the server", "server has let it in"],
              [[name, *(_spread(runs, name, figure) for figure in (_RETURN, _BYTE, _OPEN))] for name in by_name]),
        Table("Start: a candidate that fails", ["why it fails", "ms each", "of obs_x264's attempt that works"],
              [[outcome.failing, spread(runs, outcome.name, _FAILING), _beside_working(runs, outcome.name, base)]
               for outcome in OUTCOMES if outcome.failing]),
    ]


def _beside_working(runs: Runs, name: str, base: str) -> Spread:
    return Spread.of([ours[_FAILING] / theirs[_LAST] for ours, theirs in zip(runs[name], runs[base], strict=True)])


def _spread(runs: Runs, name: str, figure: str) -> Spread | None:
    return spread(runs, name, figure) if figure in runs[name][0] else None


def _ratio(runs: Runs, name: str, base: str, figure: str) -> Spread | None:
    return ratio(runs, name, base, figure) if figure in runs[name][0] else None
