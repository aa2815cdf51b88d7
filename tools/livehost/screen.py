# SPDX-License-Identifier: GPL-2.0-or-later
"""The screen that the host's windows appear on: an invisible one of its own, or the person's."""

import os
import select
import shutil
import subprocess
import tempfile
from pathlib import Path
from typing import Self

from .waiting import DeadlineError, end_child, wait_until


def _grab(window: str, environment: dict[str, str], path: Path) -> None:
    subprocess.run(["import", "-silent", "-window", window, str(path)], env=environment, check=True, timeout=30)


class VirtualScreen:
    """An X server without a monitor, and a window manager so that windows get sizes and focus."""

    scale = 1

    def __init__(self, width: int = 1600, height: int = 1000) -> None:
        self._size = f"{width}x{height}x24"
        self._server: subprocess.Popen | None = None
        self._manager: subprocess.Popen | None = None
        self.environment: dict[str, str] = {}

    def __enter__(self) -> Self:
        # -displayfd makes the server itself look for a free number and tell it when it is ready.
        self._server = subprocess.Popen(
            ["Xvfb", "-displayfd", "1", "-screen", "0", self._size, "-noreset", "-nolisten", "tcp"],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        ready, _, _ = select.select([self._server.stdout], [], [], 20)
        number = self._server.stdout.readline().strip() if ready else ""
        if not number:
            end_child(self._server)
            raise DeadlineError("the virtual X server did not start")
        self.environment = {"DISPLAY": f":{number}", "QT_QPA_PLATFORM": "xcb", "LIBGL_ALWAYS_SOFTWARE": "1"}
        self._manager = subprocess.Popen(["openbox"], env=os.environ | self.environment,
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        # Only a running window manager announces the number of desktops.
        wait_until(lambda: self._run("xdotool", "get_num_desktops").returncode == 0, 20, "window manager ready")
        return self

    def __exit__(self, *_: object) -> None:
        for child in (self._manager, self._server):
            if child:
                end_child(child)
        self._server.stdout.close()

    def _run(self, *command: str) -> subprocess.CompletedProcess:
        return subprocess.run(command, env=os.environ | self.environment, capture_output=True, check=False)

    def grab(self, path: Path) -> bool:
        """Saves a picture of the whole screen."""
        _grab("root", os.environ | self.environment, path)
        return True


class WaylandScreen:
    """A Wayland compositor without a monitor. Each of its lengths is `scale` pixels. With the shell
    "kiosk" the host's window fills it, so that places in the window, which is all that a program
    knows here, are places on the screen; that shell does not outlive many hosts."""

    def __init__(self, width: int = 1600, height: int = 1000, shell: str = "desktop", scale: int = 1) -> None:
        self._options = (f"--width={width}", f"--height={height}", f"--scale={scale}", f"--shell={shell}-shell.so")
        self.scale = scale
        self._folder = tempfile.TemporaryDirectory()
        self._compositor: subprocess.Popen | None = None
        self.environment = {"WAYLAND_DISPLAY": f"{self._folder.name}/screen", "QT_QPA_PLATFORM": "wayland",
                            "LIBGL_ALWAYS_SOFTWARE": "1"}

    def __enter__(self) -> Self:
        runtime = os.environ | {"XDG_RUNTIME_DIR": self._folder.name, "LIBGL_ALWAYS_SOFTWARE": "1"}
        self._compositor = subprocess.Popen(
            ["weston", "--backend=headless", "--renderer=gl", *self._options, "--socket=screen", "--no-config",
             "--debug"], env=runtime, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_until(lambda: Path(self.environment["WAYLAND_DISPLAY"]).exists(), 20, "Wayland compositor ready")
        return self

    def __exit__(self, *_: object) -> None:
        end_child(self._compositor)
        self._folder.cleanup()

    def grab(self, path: Path) -> bool:
        """Saves a picture of the whole screen."""
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run(["weston-screenshooter"], env=os.environ | self.environment, cwd=folder, check=True,
                           timeout=30)
            picture, = Path(folder).iterdir()
            shutil.move(picture, path)
        return True


class OwnScreen:
    """The screen of the person who started us; only the host's own window is ever pictured."""

    def __init__(self) -> None:
        names = ("DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY", "XDG_RUNTIME_DIR")
        self.environment = {name: os.environ[name] for name in names if name in os.environ}
        if not {"DISPLAY", "WAYLAND_DISPLAY"} & self.environment.keys():
            raise RuntimeError("no screen: neither DISPLAY nor WAYLAND_DISPLAY is set")
        # Through X, where there is one, the window can be pictured.
        self.environment["QT_QPA_PLATFORM"] = "xcb" if "DISPLAY" in self.environment else "wayland"

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        pass

    def grab(self, path: Path) -> bool:
        """Saves a picture of the host's window; false where the screen offers no way to."""
        if "DISPLAY" not in self.environment:
            return False
        environment = os.environ | self.environment
        found = subprocess.run(["xdotool", "search", "--onlyvisible", "--class", "^obs$"], env=environment,
                               capture_output=True, text=True, check=False).stdout.split()
        if not found:
            return False
        _grab(found[0], environment, path)
        return True
