# SPDX-License-Identifier: GPL-2.0-or-later
"""Screens for the host: invisible ones, or the user's."""

import os
import select
import shutil
import subprocess
import tempfile
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

from .waiting import running, wait_until


class Screen:
    """`environment` is that of the programs which show their windows there."""

    def __init__(self, environment: dict[str, str], scale: int = 1, private: bool = True) -> None:
        self.environment = environment
        self.scale = scale  # pixels in a length of 1
        self._private = private

    def xdotool(self, *command: str) -> list[str]:
        return subprocess.run(["xdotool", *command], env=os.environ | self.environment, capture_output=True, text=True,
                              check=False).stdout.splitlines()

    def grab(self, path: Path) -> bool:
        """Saves a screenshot, of the user's screen one of the host's window; false where that is not allowed."""
        windows = ["root"] if self._private else self.xdotool("search", "--onlyvisible", "--class", "^obs$")
        for window in windows[:1]:
            subprocess.run(["import", "-silent", "-window", window, str(path)], env=os.environ | self.environment,
                           check=True, timeout=30)
        return bool(windows)


def user_screen() -> Screen:
    """The screen on which this program was started."""
    names = ("DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY", "XDG_RUNTIME_DIR")
    environment = {name: os.environ[name] for name in names if name in os.environ}
    if not {"DISPLAY", "WAYLAND_DISPLAY"} & environment.keys():
        raise RuntimeError("no screen: neither DISPLAY nor WAYLAND_DISPLAY is set")
    # Screenshots of a single window need X.
    platform = "xcb" if "DISPLAY" in environment else "wayland"
    return Screen(environment | {"QT_QPA_PLATFORM": platform}, private=False)


@contextmanager
def virtual_screen(width: int = 1600, height: int = 1000) -> Iterator[Screen]:
    """An X server without a monitor, and a window manager so that windows get sizes and focus."""
    # -displayfd makes the server itself look for a free number and tell it when it is ready.
    with running("Xvfb", "-displayfd", "1", "-screen", "0", f"{width}x{height}x24", "-noreset", "-nolisten", "tcp",
                 stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True) as server:
        ready, _, _ = select.select([server.stdout], [], [], 20)
        number = server.stdout.readline().strip() if ready else ""
        if not number:
            raise TimeoutError("the virtual X server did not start")
        screen = Screen({"DISPLAY": f":{number}", "QT_QPA_PLATFORM": "xcb", "LIBGL_ALWAYS_SOFTWARE": "1"})
        with running("openbox", env=os.environ | screen.environment, stdout=subprocess.DEVNULL,
                     stderr=subprocess.DEVNULL):
            # Only a running window manager announces the number of desktops.
            wait_until(lambda: screen.xdotool("get_num_desktops"), 20, "window manager ready")
            yield screen


class WaylandScreen(Screen):
    def grab(self, path: Path) -> bool:
        with tempfile.TemporaryDirectory() as folder:
            environment = os.environ | self.environment
            subprocess.run(["weston-screenshooter"], env=environment, cwd=folder, check=True, timeout=30)
            picture, = Path(folder).iterdir()
            shutil.move(picture, path)
        return True


@contextmanager
def wayland_screen(shell: str = "desktop", width: int = 1600, height: int = 1000, scale: int = 1) -> Iterator[Screen]:
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
