# SPDX-License-Identifier: GPL-2.0-or-later
"""What a measure returns, tables and plots, and how they are shown and kept."""

import dataclasses
import json
from collections.abc import Mapping, Sequence
from dataclasses import dataclass, field
from pathlib import Path

import matplotlib

from .rounds import Spread

matplotlib.use("Agg")
from matplotlib import pyplot  # noqa: E402 (the backend is chosen first)

Cell = str | int | float | Spread | None


def number(value: float) -> str:
    """Three digits that count, without an exponent."""
    if value == 0:
        return "0"
    digits = 2
    while digits > 0 and abs(value) >= 10 ** (3 - digits):
        digits -= 1
    while digits < 9 and abs(value) < 10 ** (2 - digits):
        digits += 1
    return f"{value:,.{digits}f}"


def shown(cell: Cell) -> str:
    match cell:
        case None:
            return "–"
        case Spread():
            return f"{number(cell.median)} ±{number(cell.deviation)} ({number(cell.low)} … {number(cell.high)})"
        case float():
            return number(cell)
        case int():
            return f"{cell:,}"
    return cell


@dataclass(frozen=True)
class Table:
    """A Spread in a cell reads "median ±median absolute deviation (least … greatest)"."""

    title: str
    columns: Sequence[str]
    rows: Sequence[Sequence[Cell]]
    note: str = ""

    def text(self) -> str:
        lines = [list(self.columns), *([shown(cell) for cell in row] for row in self.rows)]
        widths = [max(map(len, cells)) for cells in zip(*lines, strict=True)]
        body = ("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip() for line in lines)
        return "\n".join([self.title, *(f"  {line}" for line in body), *([f"  {self.note}"] if self.note else [])])

    def markdown(self) -> str:
        lines = [self.columns, ["---"] + ["---:"] * (len(self.columns) - 1),
                 *([shown(cell) for cell in row] for row in self.rows)]
        body = "\n".join("| " + " | ".join(cell.replace("|", "\\|") for cell in line) + " |" for line in lines)
        return f"**{self.title}**\n\n{body}\n" + (f"\n{self.note}\n" if self.note else "")


@dataclass(frozen=True)
class Plot:
    """Lines through points; `name` is the picture's, without suffix."""

    name: str
    title: str
    x_label: str
    y_label: str
    lines: Mapping[str, Sequence[tuple[float, float]]] = field(default_factory=dict)
    logarithmic: bool = False

    def draw(self, path: Path) -> None:
        figure, axes = pyplot.subplots(figsize=(8, 5), layout="constrained")
        axes.set_prop_cycle(color=matplotlib.colormaps["tab10" if len(self.lines) <= 10 else "tab20"].colors)
        for label, points in self.lines.items():
            axes.plot(*zip(*points), marker="o", markersize=4, label=label)
        if self.logarithmic:
            axes.set_xscale("log")
            axes.set_yscale("log")
        axes.set(title=self.title, xlabel=self.x_label, ylabel=self.y_label)
        axes.grid(which="major", alpha=0.4)
        figure.legend(loc="outside right upper", fontsize="small")
        figure.savefig(path, dpi=110)
        pyplot.close(figure)


Result = Table | Plot


def entry(result: Result) -> dict[str, object]:
    """For JSON: all values, not as they are shown."""
    return {"kind": type(result).__name__.lower()} | dataclasses.asdict(result)


def show(results: Sequence[Result]) -> None:
    for result in results:
        if isinstance(result, Table):
            print(f"\n{result.text()}", flush=True)


def keep(name: str, results: Sequence[Result], folder: Path) -> None:
    """Writes a measure's tables as NAME.md and NAME.json, and a picture for each plot."""
    folder.mkdir(parents=True, exist_ok=True)
    (folder / f"{name}.json").write_text(json.dumps([entry(result) for result in results], indent=1) + "\n")
    parts = []
    for result in results:
        if isinstance(result, Plot):
            result.draw(folder / f"{result.name}.png")
            parts.append(f"![{result.title}]({result.name}.png)\n")
        else:
            parts.append(result.markdown())
    (folder / f"{name}.md").write_text("\n".join(parts))
