# SPDX-License-Identifier: GPL-2.0-or-later
"""A host folder with the module on a small canvas, and what the tests do with the host on it."""

import os
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

import numpy as np
from livehost.actions import UserActions
from livehost.checks import Format
from livehost.folder import HostFolder, Profile, Source, built_module
from livehost.host import LiveHost
from livehost.received import Received
from livehost.scene import HEIGHT, LEFT_RGB, RIGHT_RGB, THIRD, WIDTH, still_source
from livehost.screen import Screen
from livehost.servers import RtmpServer
from livehost.waiting import wait_until
from PIL import Image, ImageDraw

FPS = 30
# Short streams on a busy machine may lack a few frames.
VERTICAL = Format(216, 384, FPS, rate_tolerance=0.05)


def marking() -> Image.Image:
    """A still whose every region has a colour of its own: thirds, the middle one in quarters, and a
    white frame, so that a shift, a mirroring or a wrong scale moves an edge."""
    picture = Image.new("RGB", (WIDTH, HEIGHT))
    left, centre, right, middle = THIRD, WIDTH // 2, 2 * THIRD, HEIGHT // 2
    for colour, *box in ((LEFT_RGB, 0, 0, left, HEIGHT), (RIGHT_RGB, right, 0, WIDTH, HEIGHT),
                         ((200, 40, 40), left, 0, centre, middle), ((40, 160, 40), centre, 0, right, middle),
                         ((40, 40, 200), left, middle, centre, HEIGHT),
                         ((200, 180, 40), centre, middle, right, HEIGHT)):
        picture.paste(colour, tuple(box))
    ImageDraw.Draw(picture).rectangle((480, 60, 799, 659), outline="white", width=20)
    return picture


class HostFixture:
    def __init__(self, root: Path, screen: Screen, rtmp: RtmpServer) -> None:
        self.screen, self.rtmp = screen, rtmp
        self.main_key, self.vertical_key = f"main{root.name}", f"vertical{root.name}"
        self.folder = HostFolder(root)
        self.module_config = self.folder.module_config
        self.folder.install_module(Path(os.environ.get("CVC_MODULE") or built_module()))
        self.add_profile("P")
        self.add_scenes({"Main": [still_source(root / "marking.png", "marking", marking())]}, {"One": "Main"})

    def add_profile(self, name: str, resilient: bool = False, size: tuple[int, int] = (WIDTH, HEIGHT),
                    **vertical: object) -> None:
        """`vertical` replaces keys of the module; without any it streams to the RTMP server."""
        keys = {"rtmpurl": self.rtmp.url, "streamkey": self.vertical_key, "canvaswidth": VERTICAL.width,
                "canvasheight": VERTICAL.height, "videobitrate": 600} | vertical
        self.folder.add_profile(Profile(name, self.rtmp.url, self.main_key, *size, FPS, vertical=keys,
                                        resilient=resilient))

    def add_scenes(self, scenes: dict[str, list[Source]], vertical: dict[str, str]) -> None:
        """The host's scenes, and the vertical scenes with the sources that they show, "One" active."""
        self.folder.add_collection("C", scenes)
        self.folder.save_vertical_scenes(vertical, "One")

    @contextmanager
    def host(self, refused: bool = False) -> Iterator[LiveHost]:
        """The host until the block ends; it must not have leaked. A refused module is never unloaded, so
        that one's settings files stay open."""
        host = LiveHost(self.folder, self.screen, "P", "C")
        try:
            with host:
                yield host
        finally:
            print(host.log())  # shown with a failure only
        assert host.leaks() == 0 or refused and host.leaks() is not None

    def vertical(self) -> Received:
        return Received(self.rtmp.recording(self.vertical_key))

    def preview(self, user: UserActions, *size: int) -> np.ndarray:
        """The part of the screen on which the docked preview shows a canvas of that size."""
        path = self.folder.root / "screen.png"
        self.screen.grab(path)
        look = user.look("verticalPreview")
        left, top, *space = (look[key] * self.screen.scale for key in ("x", "y", "width", "height"))
        scale = min(np.float32(room / side) for room, side in zip(space, size))
        width, height = (int(scale * side) for side in size)
        left, top = left + (space[0] - width) // 2, top + (space[1] - height) // 2
        return np.asarray(Image.open(path).convert("RGB"))[top:top + height, left:left + width]


def vertical_frames(host: LiveHost) -> tuple[int, int]:
    """Those of the vertical stream so far, and those dropped of them."""
    status = host.request("GetOutputStatus", outputName=host.vertical_output()["outputName"])
    return status["outputTotalFrames"], status["outputSkippedFrames"]


def start_main(host: LiveHost) -> None:
    host.request("StartStream")
    wait_until(host.main_active, 20, "main stream")


def start(host: LiveHost, frames: int = FPS) -> None:
    """Starts the main stream and waits until the vertical one has followed it for some frames."""
    start_main(host)
    wait_until(host.vertical_active, 20, "vertical stream")
    wait_until(lambda: vertical_frames(host)[0] >= frames, 60, f"{frames} vertical frames")


def stop(host: LiveHost) -> None:
    host.request("StopStream")
    wait_until(lambda: not host.main_active() and not host.vertical_active(), 20, "both streams ended")


def main_runs_on(host: LiveHost, frames: int = FPS) -> None:
    """The main stream sends as many frames more."""
    def sent() -> int:
        status = host.request("GetStreamStatus")
        assert status["outputActive"] and not status["outputReconnecting"]
        return status["outputTotalFrames"]
    goal = sent() + frames
    wait_until(lambda: sent() >= goal, 20, f"{frames} more main frames")
