# SPDX-License-Identifier: GPL-2.0-or-later
"""What a row of the lab is, and what it finds.

A new row is a `Row` whose `play` is either a function of Python, or `program(...)`: a program that
plays the fault by itself and prints lines of JSON, the last of them the fields of `Result` (those
it leaves out keep their defaults). A program that a signal ends, or that does not end in time, is
a result like any other.
"""

import json
import signal
from collections.abc import Callable, Mapping
from dataclasses import asdict, dataclass, field
from typing import TYPE_CHECKING, Any, Self

if TYPE_CHECKING:
    from .trial import Trial

STANDARD, RESILIENT = "standard", "resilient"
POLICIES = (STANDARD, RESILIENT)


@dataclass
class Result:
    """What was seen, in words, and the figures; none where a figure cannot be known."""

    seen: str
    notice_ms: int | None = None  # from the fault to the first word of it in the log, or to the "stop"
    recover_ms: int | None = None  # from the fault's end, if it has one, until pictures arrive again
    packets_lost: int | None = None  # video packets sent that no server received
    memory_peak_mb: int | None = None
    main_lagged: int | None = None  # the host's late frames from the fault on, if not for want of a processor
    ui_pause_ms: int | None = None  # longest standstill of the UI thread from the fault on
    stops: list[int] = field(default_factory=list)  # codes of the "stop" signals, in order
    message: str = ""  # the output's last error
    faults: list[str] = field(default_factory=list)  # what no row may find, whatever is expected
    more: dict[str, Any] = field(default_factory=dict)  # figures of this row alone

    @classmethod
    def from_json(cls, text: str) -> Self:
        return cls(**json.loads(text))

    def to_json(self) -> dict[str, Any]:
        return asdict(self)


# Yields what is not as expected, in words.
Expectation = Callable[[Result], list[str]]


def expect(seen: str, stops: list[int] | None = None, message: str | None = None) -> Expectation:
    """The result's words begin with `seen`; codes and last error are checked where they are given."""
    def check(result: Result) -> list[str]:
        wrong = []
        if not result.seen.startswith(seen):
            wrong.append(f"expected: {seen}")
        if stops is not None and result.stops != stops:
            wrong.append(f"stops {result.stops}, not {stops}")
        if message is not None and result.message != message:
            wrong.append(f"last error {result.message!r}, not {message!r}")
        return wrong
    return check


@dataclass(frozen=True)
class Row:
    """One fault. `expected` has an entry for each policy that the row is meant for."""

    name: str  # one word, for the command line
    fault: str
    how: str  # how the fault is brought about
    play: Callable[["Trial"], Result]
    expected: Mapping[str, Expectation]
    seconds: float = 60  # deadline of the whole row
    by_default: bool = True  # else only when it is asked for by name

    def judge(self, policy: str, result: Result) -> list[str]:
        return [*self.expected[policy](result), *result.faults]


def ended_by(code: int) -> str:
    """Words for a process's end that is no plain exit."""
    return f"process ended: {signal.Signals(-code).name}" if code < 0 else f"process ended with status {code}"


def program(name: str, *arguments: str) -> Callable[["Trial"], Result]:
    """The `play` of a row that the program of the build, tools/faultlab/.../NAME, plays by itself; it
    is called with the arguments and the policy's name."""
    def play(trial: "Trial") -> Result:
        process = trial.start_program(name, *arguments, trial.policy)
        output, _ = process.communicate()
        if trial.timed_out:
            return Result(f"hung: no end within {trial.seconds:g} s")
        lines = [line for line in output.splitlines() if line.startswith("{")]
        result = Result.from_json(lines[-1]) if lines else Result("")
        if process.returncode != 0 or not lines:
            result.seen = ended_by(process.returncode)
        return result
    return play
