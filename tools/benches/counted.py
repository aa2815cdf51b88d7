# SPDX-License-Identifier: GPL-2.0-or-later
"""What counters, not clocks, say about a packet: system calls, allocations, copies, instructions.

Counted for the packet callback and for the output's own threads, apart.
"""

import re
import subprocess
from collections.abc import Iterable
from pathlib import Path
from typing import NamedTuple

from .packet_runs import Candidate, PacketRuns
from .setting import Setting


class Counted(NamedTuple):
    """Per packet."""

    callback: float
    writer: float
    packets: int  # of so many


# A tracer slows everything; at this speed no output falls behind.
_TRACED = {"speed": 0.5, "warm_up": 1}
_SIMULATED = {"speed": 0.1, "warm_up": 0.5}

_CALL = re.compile(r"^(\d+)\s+(\w+)\((.*)")


def system_calls(setting: Setting, runs: PacketRuns, candidate: Candidate, **options: object) -> Counted:
    trace = setting.root / "trace"
    figures = runs.run(candidate, under=["strace", "-f", "-qq", "-o", str(trace)], marks=True, **_TRACED | options)
    writers = {writer["thread"] for writer in figures["writers"]}
    callback, writer = _count_calls(trace.read_text(errors="replace").splitlines(), writers)
    return Counted(callback / figures["packets"], writer / figures["packets"], figures["packets"])


def _count_calls(lines: Iterable[str], writers: set[int]) -> tuple[int, int]:
    """Calls between the marks: {} around the measured time, () around each callback."""
    measuring, inside, callback, writer = False, set(), 0, 0
    for line in lines:
        call = _CALL.match(line)
        if not call:
            continue
        thread = int(call[1])
        if call[2] == "write" and call[3].startswith('-1, "'):
            match call[3][5]:
                case "{":
                    measuring = True
                case "}":
                    measuring = False
                case "(":
                    inside.add(thread)
                case ")":
                    inside.discard(thread)
        elif measuring:
            callback += thread in inside
            writer += thread in writers
    return callback, writer


def allocations_and_copies(setting: Setting, runs: PacketRuns, candidate: Candidate,
                           **options: object) -> dict[str, Counted]:
    """By name: allocations, allocated_bytes, copies, copied_bytes."""
    library = setting.build / "bench" / "counting" / "libcounting.so"
    figures = runs.run(candidate, variables={"LD_PRELOAD": str(library)}, **options)
    callback, writer = figures["callback_counts"], figures["writer_counts"]
    return {name: Counted(callback[name], writer[name], figures["packets"]) for name in callback}


def instructions(setting: Setting, runs: PacketRuns, candidate: Candidate, **options: object) -> Counted:
    """On a processor that valgrind plays; the threads take turns on it."""
    out, log = setting.root / "callgrind", setting.root / "valgrind.log"
    for old in setting.root.glob("callgrind*"):
        old.unlink()
    under = ["valgrind", "--tool=callgrind", "--instr-atstart=no", "--separate-threads=yes", "--fair-sched=yes",
             f"--callgrind-out-file={out}", f"--log-file={log}"]
    # The compiling renderer's code would be made anew all the time.
    figures = runs.run(candidate, under=under, variables={"GALLIUM_DRIVER": "softpipe"}, **_SIMULATED | options)
    numbers = dict(re.findall(r"Thread (\d+): .*\(lwpid (\d+)\)", log.read_text()))
    by_thread = {thread: Path(f"{out}-{int(number):02}") for number, thread in numbers.items()}
    writer = sum(_total(by_thread[str(writer["thread"])]) for writer in figures["writers"])
    return Counted(_inclusive(Path(f"{out}-01"), "corvane_measured_callback") / figures["packets"],
                   writer / figures["packets"], figures["packets"])


def _total(profile: Path) -> int:
    return int(re.search(r"^totals: (\d+)", profile.read_text(), re.MULTILINE)[1])


def _inclusive(profile: Path, function: str) -> int:
    """Instructions of the function and of all that it calls."""
    text = subprocess.run(["callgrind_annotate", "--inclusive=yes", "--auto=no", "--threshold=100", str(profile)],
                          capture_output=True, text=True, check=True).stdout
    return int(re.search(rf"^\s*([\d,]+) .*:{function}\b", text, re.MULTILINE)[1].replace(",", ""))
