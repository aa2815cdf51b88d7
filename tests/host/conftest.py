# SPDX-License-Identifier: GPL-2.0-or-later
"""One screen and one set of servers for all tests; a fresh host folder for each that asks."""

import sys
from itertools import count
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))

from livehost.screen import VirtualScreen
from livehost.servers import RtmpServer, SrtListener

from livehost.stage import Stage


@pytest.fixture(scope="session")
def new_stage(tmp_path_factory):
    numbers = count()
    root = tmp_path_factory.mktemp("host")
    with VirtualScreen() as screen, RtmpServer(root / "rtmp") as rtmp:
        srt = SrtListener(root / "srt")
        yield lambda: Stage(root, next(numbers), screen, rtmp, srt)
        srt.stop()


@pytest.fixture
def stage(new_stage):
    return new_stage()
