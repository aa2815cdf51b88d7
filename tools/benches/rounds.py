# SPDX-License-Identifier: GPL-2.0-or-later
"""Candidates measured in turns, and what their rounds say together."""

import statistics
from collections.abc import Callable, Mapping, Sequence
from dataclasses import dataclass
from typing import Self

Figures = Mapping[str, float]  # what one run of one candidate gave, by name
Runs = dict[str, list[Figures]]  # candidate → its runs, one a round


def interleave(candidates: Sequence[str], rounds: int, run: Callable[[str], Figures],
               progress: Callable[[str], None]) -> Runs:
    """A B A B …, so that what else the machine does falls on all candidates alike."""
    runs: Runs = {candidate: [] for candidate in candidates}
    for number in range(1, rounds + 1):
        for candidate in candidates:
            progress(f"round {number} of {rounds}: {candidate}")
            runs[candidate].append(run(candidate))
    return runs


@dataclass(frozen=True)
class Spread:
    """Some values, their median, least and greatest, and the median distance of them from their median."""

    values: Sequence[float]
    median: float
    low: float
    high: float
    deviation: float

    @classmethod
    def of(cls, values: Sequence[float]) -> Self:
        median = statistics.median(values)
        return cls(list(values), median, min(values), max(values),
                   statistics.median(abs(value - median) for value in values))


def spread(runs: Runs, candidate: str, figure: str) -> Spread:
    return Spread.of([figures[figure] for figures in runs[candidate]])


def ratio(runs: Runs, candidate: str, beside: str, figure: str) -> Spread:
    """The candidate's figure in units of the other's, round by round: both halves of each ratio
    were measured next to each other."""
    return Spread.of([ours[figure] / theirs[figure] for ours, theirs in zip(runs[candidate], runs[beside], strict=True)])
