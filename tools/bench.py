# SPDX-License-Identifier: GPL-2.0-or-later
"""Measures the module beside what a user would take instead, in one run on one machine.

Tables are printed; they, the values and the plots go into bench-out/.
"""

import argparse
import importlib
import json
import sys
import tempfile
from pathlib import Path

from benches import report
from benches.setting import Setting
from livehost.screen import VirtualScreen

PROJECT = Path(__file__).resolve().parents[1]
OUT = PROJECT / "bench-out"
MEASURES = ("packets", "latency", "canvas", "growth", "scenes", "start")  # each a module of benches
ROUNDS, QUICK_ROUNDS = 10, 2


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="./dev bench", description=__doc__)
    parser.add_argument("names", nargs="*", metavar="NAME", help=f"what to measure: {', '.join(MEASURES)} (all)")
    parser.add_argument("--quick", action="store_true", help="a few short rounds, to see that all works")
    parser.add_argument("--rounds", type=int, help=f"of every candidate ({ROUNDS}, {QUICK_ROUNDS} with --quick)")
    parser.add_argument("--json", type=Path, metavar="FILE", help="the values of this run in one file, too")
    arguments = parser.parse_args()
    unknown = set(arguments.names) - set(MEASURES)
    if unknown:
        parser.error(f"no such measure: {', '.join(sorted(unknown))} (there are {', '.join(MEASURES)})")
    return arguments


def main() -> int:
    arguments = parse_arguments()
    rounds = arguments.rounds or (QUICK_ROUNDS if arguments.quick else ROUNDS)
    values = {}
    with VirtualScreen() as screen:
        for name in MEASURES:
            if arguments.names and name not in arguments.names:
                continue
            print(f"==> {name}", flush=True)
            with tempfile.TemporaryDirectory() as folder:
                setting = Setting(rounds, arguments.quick, Path(folder), PROJECT / "build" / "release", screen)
                results = importlib.import_module(f"benches.{name}").measure(setting)
            report.show(results)
            report.keep(name, results, OUT)
            values[name] = [report.entry(result) for result in results]
            if arguments.json:
                arguments.json.write_text(json.dumps(values, indent=1) + "\n")
    print(f"\nTables, values and plots are in {OUT}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
