# SPDX-License-Identifier: GPL-2.0-or-later
"""One screen of a kind and one set of servers for all tests; a fresh host folder for each that asks."""

import sys
from contextlib import ExitStack
from functools import cache
from itertools import count
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))

from livehost.screen import VirtualScreen, WaylandScreen
from livehost.servers import RtmpServer, SrtListener

from livehost.stage import Stage

SCREENS = {"x11": VirtualScreen, "wayland": WaylandScreen, "kiosk": lambda: WaylandScreen(shell="kiosk"),
           "fine-kiosk": lambda: WaylandScreen(1300, 950, shell="kiosk", scale=2)}


@pytest.fixture(scope="session")
def new_stage(tmp_path_factory):
    numbers = count()
    root = tmp_path_factory.mktemp("host")
    with ExitStack() as screens, RtmpServer(root / "rtmp") as rtmp:
        srt = SrtListener(root / "srt")
        screen = cache(lambda kind: screens.enter_context(SCREENS[kind]()))
        yield lambda kind="x11": Stage(root, next(numbers), screen(kind), rtmp, srt)
        srt.stop()


@pytest.fixture
def stage(new_stage):
    return new_stage()


@pytest.fixture(params=["x11", "wayland"])
def any_stage(request, new_stage):
    return new_stage(request.param)
