# SPDX-License-Identifier: GPL-2.0-or-later
"""Measures the module beside what a user would take instead, in at most 20 minutes.

Tables, values and plots go into bench-out/, after every round.
"""

import argparse
import json
from pathlib import Path

import canvas
import programs
from measuring import Report, Setting

PROJECT = Path(__file__).resolve().parents[1]
OUT = PROJECT / "bench-out"
MEASURES = {"packets": programs.packets, "instructions": programs.instructions, "canvas": canvas.measure,
            "scenes": programs.scenes}


def main() -> None:
    parser = argparse.ArgumentParser(prog="./dev bench", description=__doc__)
    parser.add_argument("names", nargs="*", choices=MEASURES, default=list(MEASURES), help="what to measure (all)")
    parser.add_argument("--quick", action="store_true", help="one short round, to see that all works")
    parser.add_argument("--json", type=Path, metavar="FILE", help="the values of this run in one file, too")
    arguments = parser.parse_args()
    setting = Setting(PROJECT / "build" / "release", arguments.quick)
    values = {}
    for name in arguments.names:
        print(f"==> {name}", flush=True)
        report = Report({})
        try:
            for report in MEASURES[name](setting):
                report.write(OUT, name)
                values[name] = report.values
                if arguments.json:
                    arguments.json.write_text(json.dumps(values, indent=1) + "\n")
        finally:
            print("", *report.tables, sep="\n", flush=True)
    print(f"Tables, values and plots are in {OUT}")


if __name__ == "__main__":
    main()
