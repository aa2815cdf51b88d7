# SPDX-License-Identifier: GPL-2.0-or-later
"""A host folder with the module on a small canvas, and what the tests do with the host on it."""

import os
import subprocess
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

import numpy as np
from PIL import Image

from livehost.folder import HostFolder, Profile, Source, built_module
from livehost.hands import Hands
from livehost.host import LiveHost
from livehost.received import Received
from livehost.scene import marking_source
from livehost.screen import VirtualScreen, WaylandScreen
from livehost.servers import RtmpServer, SrtListener
from livehost.waiting import wait_until

WIDTH, HEIGHT, FPS = 216, 384, 30
BOX_TITLE = "Vertical Canvas \u00e2\u20ac\u201d Stream Error"


class Stage:
    def __init__(self, root: Path, number: int, screen: VirtualScreen | WaylandScreen, rtmp: RtmpServer,
                 srt: SrtListener) -> None:
        self.screen, self.rtmp, self.srt = screen, rtmp, srt
        self.main_key, self.vertical_key = f"main{number}", f"vertical{number}"
        self.folder = HostFolder(root / f"folder{number}")
        self.module_config = self.folder.config / "plugin_config" / "corvane-vertical-canvas"
        self.folder.install_module(Path(os.environ.get("CVC_MODULE") or built_module()))
        self.add_profile("P")
        self.show({"Main": [marking_source(root / f"marking{number}.png")]}, {"One": "Main"}, "One")

    def add_profile(self, name: str, resilient: bool = False, **vertical: object) -> None:
        """`vertical` replaces keys of the module; without any it streams to the RTMP server."""
        keys = {"rtmpurl": self.rtmp.url, "streamkey": self.vertical_key, "canvaswidth": WIDTH,
                "canvasheight": HEIGHT, "videobitrate": 600} | vertical
        self.folder.add_profile(Profile(name, self.rtmp.url, self.main_key, fps=FPS, vertical=keys, resilient=resilient))

    def show(self, scenes: dict[str, list[Source]], vertical: dict[str, str], active: str) -> None:
        """The host's scenes, and the vertical scenes with the sources that they show."""
        self.folder.add_collection("C", scenes)
        self.folder.save_vertical_scenes(vertical, active)

    @contextmanager
    def host(self, refused: bool = False) -> Iterator[LiveHost]:
        """The host until the block ends; whatever happened in between, it must not have leaked.
        A refused module is never unloaded, so that one's settings files stay open."""
        host = LiveHost(self.folder, self.screen, "P", "C")
        try:
            with host:
                yield host
        finally:
            print(host.log())  # shown with a failure only
        assert host.leaks() == 0 or refused and host.leaks() is not None

    def main(self) -> Received:
        self.rtmp.wait_idle()
        return Received(self.rtmp.recording(self.main_key))

    def vertical(self) -> Received:
        self.rtmp.wait_idle()
        return Received(self.rtmp.recording(self.vertical_key))

    def preview(self, hands: Hands, width: int, height: int) -> np.ndarray:
        """The part of the screen on which the docked preview shows a canvas of that size."""
        path = self.folder.root / "screen.png"
        self.screen.grab(path)
        look = hands.look("verticalPreview")
        seen = {key: look[key] * self.screen.scale for key in ("x", "y", "width", "height")}
        scale = min(np.float32(seen["width"] / width), np.float32(seen["height"] / height))
        shown = int(scale * width), int(scale * height)
        left, top = (seen[place] + (seen[size] - part) // 2
                     for place, size, part in zip("xy", ("width", "height"), shown))
        return np.asarray(Image.open(path).convert("RGB"))[top:top + shown[1], left:left + shown[0]]

    def _xdotool(self, *command: str) -> list[str]:
        environment = os.environ | self.screen.environment
        return subprocess.run(["xdotool", *command], env=environment, capture_output=True, text=True,
                              check=False).stdout.splitlines()

    def boxes(self) -> list[str]:
        """The windows of message boxes about a failed stream."""
        found = self._xdotool("search", "--onlyvisible", "--name", "Stream Error")
        return [window for window in found if self._xdotool("getwindowname", window) == [BOX_TITLE]]

    def close_box(self) -> None:
        """Waits for the one message box, and closes it as a user at the keyboard does."""
        box, = wait_until(self.boxes, 10, "message box")
        wait_until(lambda: self._xdotool("getactivewindow") == [box], 10, "message box active")
        self._xdotool("key", "Return")
        wait_until(lambda: not self.boxes(), 10, "message box closed")


def sent_frames(host: LiveHost, output: str) -> int:
    return host.request("GetOutputStatus", outputName=output)["outputTotalFrames"]


def start_main(host: LiveHost) -> None:
    host.request("StartStream")
    wait_until(host.main_active, 20, "main stream")


def start(host: LiveHost, frames: int = FPS) -> None:
    """Starts the main stream and waits until the vertical one has followed it for some frames."""
    start_main(host)
    output = wait_until(lambda: host.vertical_active() and host.vertical_output()["outputName"], 20, "vertical stream")
    wait_until(lambda: sent_frames(host, output) >= frames, 60, f"{frames} vertical frames")


def stop(host: LiveHost) -> None:
    host.request("StopStream")
    wait_until(lambda: not host.main_active() and not host.vertical_active(), 20, "both streams ended")


def start_by_hand(host: LiveHost, hands: Hands) -> None:
    """Starts the vertical stream in the dock and waits for a second's frames of it."""
    hands.click("startButton")
    wait_until(host.vertical_active, 20, "vertical stream")
    hands.reads("statusLabel", "Streaming", seconds=1)
    assert hands.enabled("startButton", "stopButton") == [False, True]
    output = host.vertical_output()["outputName"]
    wait_until(lambda: sent_frames(host, output) >= FPS, 60, "vertical frames")


def stop_by_hand(host: LiveHost, hands: Hands) -> None:
    hands.click("stopButton")
    hands.reads("statusLabel", "Stopped")
    assert hands.enabled("startButton", "stopButton") == [True, False]
    assert not host.vertical_active()


def main_runs_on(host: LiveHost, frames: int = FPS) -> None:
    """The main stream sends as many frames more."""
    def sent() -> int:
        status = host.request("GetStreamStatus")
        assert status["outputActive"] and not status["outputReconnecting"]
        return status["outputTotalFrames"]
    goal = sent() + frames
    wait_until(lambda: sent() >= goal, 20, f"{frames} more main frames")
