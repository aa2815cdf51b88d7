# SPDX-License-Identifier: GPL-2.0-or-later
"""The measures that are Google Benchmark programs: packets, instructions and scenes."""

import json
import os
import re
import statistics
import subprocess
import tempfile
from collections import defaultdict
from collections.abc import Iterator, Sequence
from pathlib import Path
from typing import Any

from livehost.screen import virtual_screen
from matplotlib.pyplot import Figure

from measuring import Report, Rounds, Setting, column, ratio

USUAL = {"tracks": 6, "fps": 30, "megabits": 4}
USUAL_NAME = "/tracks:6/fps:30/megabits:4"
GROWING = ("standard RTMP", "host RTMP", "standard SRT", "host SRT")
OUTPUTS = (*GROWING, "resilient RTMP", "resilient SRT", "floor: FLV into dev null")


def run(setting: Setting, program: str, *flags: str, under: Sequence[str] = (),
        **variables: str) -> list[dict[str, Any]]:
    """The program's benchmarks. One that broke off is an error."""
    with virtual_screen() as screen, tempfile.TemporaryDirectory() as folder:
        # As in the host, each log line is written to a file by itself.
        out, log = Path(folder, "out"), Path(folder, "log")
        with log.open("w") as stream:
            status = subprocess.run([*under, str(setting.build / "bench" / program), f"--benchmark_out={out}", *flags],
                                    env=os.environ | screen.environment | variables, stdout=stream, stderr=stream,
                                    check=False).returncode
        found = json.loads(out.read_text())["benchmarks"] if status == 0 else []
        errors = [entry["error_message"] for entry in found if entry.get("error_occurred")]
        if status != 0 or errors:
            raise RuntimeError(f"{program}: status {status}, {errors}\n{log.read_text()[-4000:]}")
    return found


def host_of(name: str) -> str:
    """The host's own output that a user would take instead."""
    return re.sub(r"^\w+ (RTMP|SRT)", r"host \1", name)


def packets(setting: Setting) -> Iterator[Report]:
    """CPU time and latency of a packet, and how the CPU time grows with the stream."""
    seconds, streams = (1, USUAL_NAME) if setting.quick else (2, "/")
    rounds: Rounds = defaultdict(list)
    for _ in setting.rounds(minutes=8):
        for output in OUTPUTS:
            for entry in run(setting, "packet_bench", f"--benchmark_min_time={seconds}x",
                             f"--benchmark_filter=^{output}{streams}"):
                rounds[entry["name"].removesuffix("/manual_time")].append(entry)
            yield packet_report(rounds)


def packet_report(rounds: Rounds) -> Report:
    report = Report(rounds, plots={"packets": lambda figure: draw_growth(rounds, figure)})
    usual = {name.removesuffix(USUAL_NAME): runs for name, runs in rounds.items() if name.endswith(USUAL_NAME)}
    figures = {"callback, CPU µs": "callback_us", "whole path, CPU µs": "path_us", "latency p50, ms": "p50_ms",
               "latency p99, ms": "p99_ms"}
    report.table(f"A packet, {USUAL_NAME[1:]}", list(usual),
                 {label: column(usual, figure) for label, figure in figures.items()})
    report.table("The same, in units of the host's own output", [name for name in usual if host_of(name) != name],
                 {label: ratio(usual, figure, host_of) for label, figure in figures.items()})
    cost = column(rounds, "path_us")
    report.table("A packet's whole path, CPU µs", list(dict.fromkeys(name[name.index("/"):] for name in rounds)),
                 {output: lambda stream, output=output: cost(output + stream) for output in GROWING})
    return report


def draw_growth(rounds: Rounds, figure: Figure) -> None:
    for axes, option in zip(figure.subplots(1, len(USUAL), sharey=True), USUAL):
        others = USUAL.items() - {(option, USUAL[option])}
        for output in GROWING:
            points = sorted((runs[0][option], statistics.median(run["path_us"] * run["packets"] / run["iterations"] / 1000
                                                                for run in runs))
                            for name, runs in rounds.items() if name.startswith(output) and others <= runs[0].items())
            axes.plot([x for x, _ in points], [y for _, y in points], marker="o", label=output)
        axes.set(xlabel=option, ylim=(0, None))
        axes.grid(alpha=0.4)
    figure.axes[0].set_ylabel("whole path, CPU ms per second of the stream")
    figure.axes[0].legend()


def instructions(setting: Setting) -> Iterator[Report]:
    """What callgrind counts inside the packet callback."""
    found: dict[str, float] = {}
    for output in GROWING[:2] if setting.quick else OUTPUTS[:5]:
        with tempfile.TemporaryDirectory() as folder:
            # A renderer that makes no machine code: valgrind would translate it anew all the time.
            run(setting, "packet_bench", "--benchmark_min_time=5x", f"--benchmark_filter=^{output}{USUAL_NAME}",
                under=["valgrind", "-q", "--tool=callgrind", "--instr-atstart=no", "--separate-threads=yes",
                       "--toggle-collect=measured_callback", "--compress-strings=no",
                       f"--callgrind-out-file={folder}/out"], GALLIUM_DRIVER="softpipe")
            text = "".join(path.read_text() for path in Path(folder).glob("out-*"))
        calls = sum(map(int, re.findall(r"^cfn=measured_callback\ncalls=(\d+)", text, re.MULTILINE)))
        found[output] = sum(map(int, re.findall(r"^totals: (\d+)", text, re.MULTILINE))) / calls
        report = Report(found)
        report.table("Instructions in the callback, per packet", list(found), {"": lambda name: f"{found[name]:,.0f}"})
        yield report


def scenes(setting: Setting) -> Iterator[Report]:
    """How operations grow with the number of vertical scenes."""
    flags = (["--benchmark_min_time=0.005s", "--benchmark_filter=/(10|100)$|/(10|100)/"] if setting.quick
             else ["--benchmark_min_time=0.05s"])
    rounds: Rounds = defaultdict(list)  # operation → times by number of scenes
    for _ in setting.rounds(minutes=2):
        complexity, times = {}, defaultdict(dict)
        for entry in run(setting, "scene_bench", *flags):
            operation, count, *_ = entry["name"].split("/")
            if "big_o" in entry:
                complexity[operation] = entry["big_o"]
            elif "rms" not in entry:
                times[operation][count] = entry["real_time"]
        for operation, by_count in times.items():
            rounds[operation].append(by_count)
        report = Report(rounds, plots={"scenes": lambda figure: draw_scenes(rounds, figure)})
        counts = next(iter(times.values()))
        report.table("Scene operations, µs", list(rounds),
                     {f"{count} scenes": column(rounds, count) for count in counts} | {"fit, last round": complexity.get})
        yield report


def draw_scenes(rounds: Rounds, figure: Figure) -> None:
    axes = figure.subplots()
    for operation, runs in rounds.items():
        axes.loglog([int(count) for count in runs[0]],
                    [statistics.median(run[count] for run in runs) for count in runs[0]], marker="o", label=operation)
    axes.set(xlabel="vertical scenes", ylabel="µs")
    axes.grid(alpha=0.4)
    figure.legend(loc="outside right upper")
