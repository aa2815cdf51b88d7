# SPDX-License-Identifier: GPL-2.0-or-later
"""Plays the faults of the lab, one after the other, and writes docs/FAULTS.md."""

import argparse
import os
import resource
import shutil
import sys
import tempfile
import traceback
from contextlib import suppress
from pathlib import Path

from faultlab.rows import ROWS
from faultlab.row import POLICIES, Result, Row
from faultlab.table import console_line, keep
from faultlab.trial import Trial
from livehost.screen import VirtualScreen


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="./dev faults", description=__doc__)
    parser.add_argument("names", nargs="*", metavar="NAME", help="rows to play; without any, all but the longest")
    parser.add_argument("--policy", choices=[*POLICIES, "both"], default="both")
    parser.add_argument("--preset", default="release", help="the build to play with")
    parser.add_argument("--list", action="store_true", help="name the rows and play none")
    parser.add_argument("--seconds", type=int, default=3600, help="length of the row hour")
    parser.add_argument("--keep", type=lambda text: Path(text).resolve(), help="folder for what the rows leave behind")
    parser.add_argument("--dry", action="store_true", help="print the results only, leave docs/ alone")
    arguments = parser.parse_args()
    unknown = set(arguments.names) - {row.name for row in ROWS}
    if unknown:
        parser.error(f"no such row: {', '.join(sorted(unknown))} (see --list)")
    return arguments


def play(row: Row, policy: str, root: Path, screen: VirtualScreen, arguments: argparse.Namespace) -> Result:
    """A row that breaks off has not shown anything, which is never as expected."""
    try:
        with Trial(row, policy, root / f"{row.name}-{policy}", screen, arguments.preset,
                   {"seconds": arguments.seconds}) as trial:
            return trial.play()
    except Exception:  # whatever it is, the other rows are to be played
        traceback.print_exc()
        return Result("the row broke off", faults=["the row broke off"])


def main() -> int:
    arguments = parse_arguments()
    if arguments.list:
        for row in ROWS:
            print(f"{row.name:<24} {row.fault}{'' if row.by_default else ' (only by name)'}")
        return 0
    chosen = [row for row in ROWS if (row.name in arguments.names if arguments.names else row.by_default)]
    policies = POLICIES if arguments.policy == "both" else (arguments.policy,)
    # What else the machine has to do is not to be seen in the figures; where this is refused it is.
    with suppress(PermissionError):
        os.nice(-10)
    # Processes that end by a signal are expected; their memory images are of no use.
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    played = deviations = 0
    root = arguments.keep or Path(tempfile.mkdtemp())
    try:
        with VirtualScreen(800, 600) as screen:
            for row in chosen:
                print(f"{row.name}: {row.fault}", flush=True)
                for policy in policies:
                    if policy not in row.expected:
                        continue
                    result = play(row, policy, root, screen, arguments)
                    wrong = row.judge(policy, result)
                    played += 1
                    deviations += bool(wrong)
                    print(console_line(policy, result, wrong), flush=True)
                    if not arguments.dry:
                        keep(row, policy, result, wrong, ROWS)
    finally:
        if not arguments.keep:
            shutil.rmtree(root, ignore_errors=True)
    print(f"{played - deviations} of {played} as expected.")
    return 1 if deviations else 0


if __name__ == "__main__":
    sys.exit(main())
