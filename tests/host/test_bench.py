# SPDX-License-Identifier: GPL-2.0-or-later
"""Whether the bench still measures; what it measures is for a quiet machine."""

import os
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "bench"))

from measuring import Setting
from programs import packets, scenes

SETTING = Setting(Path(os.environ["CVC_MODULE"]).parents[1], quick=True)


def test_packets():
    """An output that the bench no longer starts, or whose packets it no longer sees leave."""
    *_, report = packets(SETTING)
    assert len(report.values) == 7
    assert all(run["callback_us"] > 0 for runs in report.values.values() for run in runs)


def test_scenes():
    """An operation that fails on the list."""
    report, = scenes(SETTING)
    assert all(times.keys() == {"10", "100"} for runs in report.values.values() for times in runs)
