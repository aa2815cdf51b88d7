# SPDX-License-Identifier: GPL-2.0-or-later
"""What the measures share: rounds, and the tables and plots made of them."""

import json
import statistics
import time
from collections.abc import Callable, Iterator, Mapping, Sequence
from dataclasses import dataclass, field
from pathlib import Path

import matplotlib

matplotlib.use("Agg")
from matplotlib import pyplot  # noqa: E402 (the backend is chosen first)

Rounds = dict[str, list[Mapping[str, float]]]  # candidate → its figures in each round


@dataclass(frozen=True)
class Setting:
    build: Path
    quick: bool  # one short round; its figures say nothing

    def rounds(self, minutes: float) -> Iterator[int]:
        """As many rounds as fit into the time, at least one. All candidates take turns in each, so that what else the
        machine does falls on all alike."""
        begin, number = time.monotonic(), 0
        while number == 0 or not self.quick and (time.monotonic() - begin) * (number + 1) / number < 60 * minutes:
            number += 1
            print(f"    round {number}", flush=True)
            yield number


def number(value: float) -> str:
    return f"{value:,.0f}" if abs(value) >= 1000 else f"{value:.3g}"


def spread(values: Sequence[float]) -> str:
    """Median (least … greatest)."""
    return f"{number(statistics.median(values))} ({number(min(values))} … {number(max(values))})" if values else "–"


def column(rounds: Rounds, figure: str) -> Callable[[str], str]:
    return lambda name: spread([figures[figure] for figures in rounds.get(name, ()) if figure in figures])


def ratio(rounds: Rounds, figure: str, base: Callable[[str], str]) -> Callable[[str], str]:
    """The figure in units of another candidate's, round by round: these two were measured close together."""
    return lambda name: spread([ours[figure] / theirs[figure]
                                for ours, theirs in zip(rounds[name], rounds.get(base(name), ()))])


@dataclass
class Report:
    """What one measure has found so far."""

    values: Mapping[str, object]  # for JSON
    tables: list[str] = field(default_factory=list)  # in Markdown
    plots: dict[str, Callable[[pyplot.Figure], None]] = field(default_factory=dict)

    def table(self, title: str, names: Sequence[str], columns: Mapping[str, Callable[[str], str]]) -> None:
        """A row for each name, a column for each function of the name."""
        lines = [["", *columns], ["---", *["---:"] * len(columns)],
                 *([name, *(cell(name) for cell in columns.values())] for name in names)]
        self.tables.append(f"**{title}**\n\n" + "".join(f"| {' | '.join(line)} |\n" for line in lines))

    def write(self, folder: Path, name: str) -> None:
        folder.mkdir(parents=True, exist_ok=True)
        (folder / f"{name}.md").write_text("\n".join(self.tables))
        (folder / f"{name}.json").write_text(json.dumps(self.values, indent=1) + "\n")
        for plot, draw in self.plots.items():
            figure = pyplot.figure(figsize=(11, 5), layout="constrained")
            draw(figure)
            figure.savefig(folder / f"{plot}.png", dpi=100)
            pyplot.close(figure)
