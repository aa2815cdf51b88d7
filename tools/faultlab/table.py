# SPDX-License-Identifier: GPL-2.0-or-later
"""The results: docs/faults.json keeps each row's latest one, docs/FAULTS.md shows them as a table."""

import json
import os
import platform
from collections.abc import Callable, Iterator, Sequence
from pathlib import Path
from typing import Any

from .row import POLICIES, RESILIENT, STANDARD, Result, Row

_DOCS = Path(__file__).resolve().parents[2] / "docs"
_JSON, _PAGE = _DOCS / "faults.json", _DOCS / "FAULTS.md"
_NOTHING = "–"

Kept = dict[str, dict[str, dict[str, Any]]]  # row → policy → the fields of a result, and what was wrong

_INTRO = """\
# What happens when network, server, packets or host fail

Each row is one fault, over real TCP and UDP on a private loopback to real servers (nginx with its RTMP
module, srt-live-transmit). It runs by itself in a process of its own, with a deadline: a process that
ends or hangs is a result. Three kinds of process:

- up to `video-reset`, real libobs with the built module, which streams a small vertical canvas beside a
  main stream of the host's own;
- from `encoder-fails-rtmp` to `day`, real libobs with the output type alone, fed by encoders that do as
  they are told, so that there is no main stream;
- in `hour`, the real host.

**standard** is the output type that is used unless the profile says otherwise, **resilient** the one of
a profile with `enabled=true` in the section `[Resilience]`. What the standard type does is what
it is meant to do, also where that is hanging or ending the process.

Repeat it with `./dev faults`, or a part of it with `./dev faults NAME… --policy standard|resilient`, which
replaces the cells of those rows alone; `hour` is played by its name only. The figures here are from {machine}.

- *time to notice*: from the fault to the first word of it in the log, or to the stream's end.
- *time to recover*: from the end of the fault, or from the fault where it has no length, until the
  server receives pictures again.
- *packets lost*: video packets that the encoder made until the user stopped the stream and that no
  server received, those included that were dropped on purpose or for want of a connection. With
  several streams it is the last one's.
- *memory peak*: of the whole process, the host included.
- *frames late*: those that libobs's graphics thread was late with, from the fault on; in brackets
  those that were late while that thread waited for a free processor, as the machine had other work to
  do besides. And how long the main stream stood still, where that was over a second.

Two figures in a cell are standard / resilient; – is what a row has none of, or what was not measured.
"""

_HEADERS = ("name", "fault", "how injected", "standard: seen", "resilient: seen", "time to notice",
            "time to recover", "packets lost", "memory peak", "frames late")


def keep(row: Row, policy: str, result: Result, wrong: Sequence[str], rows: Sequence[Row]) -> None:
    """Puts the result in place of the row's and policy's last one. Rows that no longer exist are
    dropped, the rest stand in the order of the rows."""
    # Read each time, as another run may have written meanwhile.
    kept = json.loads(_JSON.read_text()) if _JSON.exists() else {}
    kept.setdefault(row.name, {})[policy] = result.to_json() | {"wrong": list(wrong)}
    present = [row for row in rows if row.name in kept]
    _JSON.write_text("{\n" + ",\n".join(_json_lines({row.name: kept[row.name] for row in present})) + "\n}\n")
    _PAGE.write_text(_page(present, kept))


def _page(rows: Sequence[Row], kept: Kept) -> str:
    lines = [_line(_HEADERS), _line(["---"] * len(_HEADERS))]
    for row in rows:
        results = kept[row.name]
        lines.append(_line([f"`{row.name}`", row.fault, row.how, *(_seen(results.get(policy)) for policy in POLICIES),
                            *(_pair(results, figure) for figure in _FIGURES)]))
    return _INTRO.format(machine=machine()) + "\n" + "\n".join(lines) + "\n"


def machine() -> str:
    """The kind of machine, since times and late frames depend on it."""
    return f"a machine with {os.cpu_count()} processor cores ({platform.machine()}) and no graphics card"


def _json_lines(kept: Kept) -> Iterator[str]:
    """A line for each result, so that a difference shows what was played anew."""
    for name, results in kept.items():
        lines = (f"  {json.dumps(policy)}: {json.dumps(result, ensure_ascii=False)}"
                 for policy, result in results.items())
        yield f" {json.dumps(name)}: {{\n" + ",\n".join(lines) + "}"


def _line(cells: Sequence[str]) -> str:
    return "| " + " | ".join(cell.replace("|", "\\|").replace("\n", " ") for cell in cells) + " |"


def _seen(result: dict[str, Any] | None) -> str:
    if result is None:
        return _NOTHING
    deviation = f" **Not as expected: {'; '.join(result['wrong'])}**" if result["wrong"] else ""
    return result["seen"] + deviation


def _pair(results: dict[str, dict[str, Any]], show: Callable[[dict[str, Any]], str]) -> str:
    return " / ".join(show(results[policy]) if policy in results else _NOTHING for policy in (STANDARD, RESILIENT))


def _seconds(name: str) -> Callable[[dict[str, Any]], str]:
    return lambda result: _NOTHING if result[name] is None else f"{result[name] / 1000:.1f} s"


def _plain(name: str, unit: str = "") -> Callable[[dict[str, Any]], str]:
    return lambda result: _NOTHING if result[name] is None else f"{result[name]}{unit}"


def _main(result: dict[str, Any]) -> str:
    pause = result["more"].get("main_pause_ms", 0)
    waiting = result["more"].get("late_waiting")
    late = _plain("main_lagged")(result) + (f" (+{waiting})" if waiting else "")
    return late + (f", stood still {pause / 1000:.1f} s" if pause > 1000 else "")


_FIGURES = (_seconds("notice_ms"), _seconds("recover_ms"), _plain("packets_lost"), _plain("memory_peak_mb", " MB"),
            _main)


def console_line(policy: str, result: Result, wrong: Sequence[str]) -> str:
    figures = " · ".join(f"{name} {show(result.to_json())}" for name, show in zip(
        ("notice", "recover", "lost", "memory", "late"), _FIGURES))
    verdict = "as expected" if not wrong else "NOT as expected: " + "; ".join(wrong)
    return f"  {policy}: {result.seen}\n    {figures} · UI pause {result.ui_pause_ms} ms\n    {verdict}"
