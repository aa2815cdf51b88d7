# SPDX-License-Identifier: GPL-2.0-or-later
"""What the list of vertical scenes costs as it grows: operations, its file, the dock, memory."""

from collections.abc import Sequence

import numpy as np

from .report import Plot, Result, Table
from .rounds import Figures, Runs, Spread, interleave, ratio, spread
from .setting import Setting

SIZES, QUICK_SIZES = (1, 10, 100, 300, 1000), (1, 10, 30)
_UNLOGGED, _UNMARKED = "without log", "without sound marker"
_BYTES = ("scene_bytes", "line_bytes")


def run_once(setting: Setting, size: int, variant: str = "") -> Figures:
    """The time of each operation in µs, and the memory of a scene and of a line of the dock's list."""
    answer = setting.run_program("scenes/scene_bench", size, 0.005 if setting.quick else 0.05,
                                 "-" if variant == _UNLOGGED else "host.log", int(variant != _UNMARKED))
    if answer["scenes"] != size:
        raise RuntimeError(f"{answer['scenes']} scenes instead of {size}")
    return {name: operation["us"] for name, operation in answer["operations"].items()} | {
        name: answer[name] for name in _BYTES}


def growth(runs: Runs, sizes: Sequence[int], figure: str) -> Spread:
    """The exponent of the power of the size that the figure grows with, fitted in each round."""
    rounds = zip(*(runs[str(size)] for size in sizes), strict=True)
    return Spread.of([float(np.polyfit(np.log(sizes), np.log([figures[figure] for figures in one]), 1)[0])
                      for one in rounds])


def measure(setting: Setting) -> list[Result]:
    sizes = QUICK_SIZES if setting.quick else SIZES
    candidates = {str(size): (size,) for size in sizes} | {
        variant: (sizes[-1], variant) for variant in (_UNLOGGED, _UNMARKED)}
    runs = interleave(list(candidates), setting.rounds, lambda name: run_once(setting, *candidates[name]),
                      setting.progress)
    return tables(runs, sizes)


def tables(runs: Runs, sizes: Sequence[int]) -> list[Result]:
    most, some = sizes[-1], next(size for size in sizes if size >= sizes[-1] / 10)
    operations = [name for name in runs[str(most)][0] if name not in _BYTES]
    # With one scene there is nothing else to activate, and what does not grow is all there is.
    larger = [[size for size in sizes if size >= least] for least in dict.fromkeys((sizes[1], some, sizes[-2]))]
    return [
        Table("Scene operations: exponent of growth", ["operation", *(f"{span[0]:,} → {most:,}" for span in larger)],
              [[name, *(growth(runs, span, name) for span in larger)] for name in operations],
              "Time grows with the number of scenes to the power of it: 0 does not grow, 1 is linear."),
        Table(f"Scene operations: share of what is required beside, at {most:,} scenes",
              ["operation", f"{_UNLOGGED} / all", f"{_UNMARKED} / all"],
              [[name, *(ratio(runs, variant, str(most), name) for variant in (_UNLOGGED, _UNMARKED))]
               for name in operations],
              "The log: every line is formatted and written to a file at once. The sound marker: with each "
              "assignment and activation it is taken off all sources."),
        Table("Scene operations: µs", ["operation", *(f"{size:,} scenes" for size in sizes)],
              [[name, *(spread(runs, str(size), name) for size in sizes)] for name in operations]),
        Table("Scene operations: bytes of heap", ["for each", *(f"of {size:,}" for size in sizes[1:])],
              [[what, *(spread(runs, str(size), name) for size in sizes[1:])]
               for what, name in zip(("vertical scene", "line of the dock's list"), _BYTES)]),
        Plot("scenes", "Scene operations as the list grows", "vertical scenes", "time, µs",
             {name: [(size, spread(runs, str(size), name).median) for size in sizes] for name in operations},
             logarithmic=True),
    ]
