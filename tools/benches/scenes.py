# SPDX-License-Identifier: GPL-2.0-or-later
"""What the list of vertical scenes costs as it grows: operations, its file, the dock, memory."""

import numpy as np

from .report import Plot, Result, Table
from .rounds import Figures, Runs, Spread, interleave, ratio, spread
from .setting import Setting

SIZES = (1, 10, 100, 300, 1000)
QUICK_SIZES = (1, 10, 30)
_UNLOGGED = "without log"
_BYTES = ("scene_bytes", "line_bytes")


def growth(runs: Runs, sizes: list[int], figure: str) -> Spread:
    """The exponent of the power of the size that the figure grows with, fitted in each round."""
    rounds = zip(*(runs[str(size)] for size in sizes), strict=True)
    return Spread.of([float(np.polyfit(np.log(sizes), np.log([figures[figure] for figures in one]), 1)[0])
                      for one in rounds])


def measure(setting: Setting) -> list[Result]:
    sizes = QUICK_SIZES if setting.quick else SIZES
    most = sizes[-1]
    seconds = 0.005 if setting.quick else 0.05

    def run(candidate: str) -> Figures:
        logged = candidate != _UNLOGGED
        answer = setting.run_program("scenes/scene_bench", candidate if logged else most, seconds,
                                     "host.log" if logged else "-")
        assert answer["scenes"] == (int(candidate) if logged else most)
        return {name: operation["us"] for name, operation in answer["operations"].items()} | {
            name: answer[name] for name in _BYTES}

    runs = interleave([*map(str, sizes), _UNLOGGED], setting.rounds, run, setting.progress)
    operations = [name for name in runs[str(most)][0] if name not in _BYTES]
    large = [size for size in sizes if size >= most / 10]
    return [
        Table("Scene operations: growth", ["operation", "exponent over all sizes", f"exponent {large[0]} → {most}",
                                           f"per scene at {most}, against {large[0]}"],
              [[name, growth(runs, list(sizes), name), growth(runs, large, name),
                _per_scene(ratio(runs, str(most), str(large[0]), name), most / large[0])] for name in operations],
              "Time grows with the size to the power of the exponent: 0 does not grow, 1 is linear."),
        Table("Scene operations: time in µs", ["operation", *(f"{size:,} scenes" for size in sizes)],
              [[name, *(spread(runs, str(size), name) for size in sizes)] for name in operations]),
        Table(f"Scene operations: share of the log at {most} scenes", ["operation", "without log / with log"],
              [[name, ratio(runs, _UNLOGGED, str(most), name)] for name in operations],
              "With the log every line is formatted and written to a file at once, as the host does it."),
        Table("Scene operations: memory in bytes of heap", ["per", *(f"of {size:,}" for size in sizes)],
              [["vertical scene with its source", *(spread(runs, str(size), "scene_bytes") for size in sizes)],
               ["line of the dock's list", *(spread(runs, str(size), "line_bytes") for size in sizes)]]),
        Plot("scenes", "Scene operations as the list grows", "vertical scenes", "time, µs",
             {name: [(size, spread(runs, str(size), name).median) for size in sizes] for name in operations},
             logarithmic=True),
    ]


def _per_scene(whole: Spread, sizes: float) -> Spread:
    return Spread(whole.median / sizes, whole.low / sizes, whole.high / sizes, whole.deviation / sizes, whole.count)
