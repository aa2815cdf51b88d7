# SPDX-License-Identifier: GPL-2.0-or-later
"""One screen of a kind and one set of servers for all tests; a fresh host folder for each that asks."""

from contextlib import ExitStack
from functools import cache, partial
from itertools import count

import pytest
from host_fixture import HostFixture
from livehost.screen import virtual_screen, wayland_screen
from livehost.servers import RtmpServer

SCREENS = {"x11": virtual_screen, "wayland": wayland_screen, "kiosk": partial(wayland_screen, "kiosk"),
           "fine-kiosk": partial(wayland_screen, "kiosk", 1300, 950, scale=2)}


@pytest.fixture(scope="session")
def new_setup(tmp_path_factory):
    numbers = count()
    root = tmp_path_factory.mktemp("host")
    with ExitStack() as screens, RtmpServer(root / "rtmp") as rtmp:
        screen = cache(lambda kind: screens.enter_context(SCREENS[kind]()))
        yield lambda kind="x11": HostFixture(root / str(next(numbers)), screen(kind), rtmp)


@pytest.fixture
def setup(new_setup):
    return new_setup()


@pytest.fixture(params=["x11", "wayland"])
def any_screen(request, new_setup):
    """The same on either kind of screen."""
    return new_setup(request.param)
