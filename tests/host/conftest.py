# SPDX-License-Identifier: GPL-2.0-or-later
"""One screen of a kind and one set of servers for all tests; a fresh host folder for each that asks."""

import os
import shutil
import subprocess
import sys
import tempfile
from contextlib import ExitStack, contextmanager
from functools import cache, partial
from itertools import count
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))

from host_fixture import HostFixture
from livehost.screen import Screen, virtual_screen
from livehost.servers import RtmpServer
from livehost.waiting import running, wait_until


class WaylandScreen(Screen):
    def grab(self, path):
        with tempfile.TemporaryDirectory() as folder:
            environment = os.environ | self.environment
            subprocess.run(["weston-screenshooter"], env=environment, cwd=folder, check=True, timeout=30)
            picture, = Path(folder).iterdir()
            shutil.move(picture, path)


@contextmanager
def wayland_screen(shell="desktop", width=1600, height=1000, scale=1):
    """A compositor without a monitor. Each of its lengths is `scale` pixels. With the shell "kiosk" the host's window
    fills it, so that places in the window, which is all that a program knows here, are places on the screen; that
    shell does not outlive many hosts."""
    with tempfile.TemporaryDirectory() as runtime, running(
            "weston", "--backend=headless", "--renderer=gl", f"--width={width}", f"--height={height}",
            f"--scale={scale}", f"--shell={shell}-shell.so", "--socket=screen", "--no-config", "--debug",
            env=os.environ | {"XDG_RUNTIME_DIR": runtime, "LIBGL_ALWAYS_SOFTWARE": "1"},
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL):
        socket = Path(runtime, "screen")
        wait_until(socket.exists, 20, "Wayland compositor ready")
        yield WaylandScreen({"WAYLAND_DISPLAY": str(socket), "QT_QPA_PLATFORM": "wayland",
                             "LIBGL_ALWAYS_SOFTWARE": "1"}, scale)


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
