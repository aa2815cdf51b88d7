# SPDX-License-Identifier: GPL-2.0-or-later
"""Streams the real host's main and vertical canvas to real servers, and checks what these received.

Each protocol is one run of the host with a fresh configuration, set up in the module's settings
and dock by mouse and keyboard. Over RTMP the vertical stream starts with the main one, over SRT by
the dock's button; both end with the main one. The settings keep their defaults but for address and
auto-start: 1080x1920, 30 frames per second, 4000 kbps, "veryfast".
"""

import argparse
import shutil
import sys
import tempfile
import time
from collections.abc import Callable, Mapping, Sequence
from contextlib import nullcontext
from dataclasses import dataclass, field
from pathlib import Path

from PIL import Image

from livehost.checks import Format, cover_faults, entry_faults, stream_faults
from livehost.folder import HostFolder, Profile, Source, built_module
from livehost.hands import RIGHT, SETTINGS_ITEM, Hands
from livehost.host import FrameCount, HostError, LiveHost
from livehost.received import Received
from livehost.remote import RequestError
from livehost.report import Column, table
from livehost.scene import pause_sources, stage_sources
from livehost.screen import OwnScreen, VirtualScreen
from livehost.servers import RtmpServer, SrtListener
from livehost.waiting import DeadlineError, wait_until

MAIN = Format(1280, 720, 30, audio_tracks=1)
VERTICAL = Format(1080, 1920, 30, audio_tracks=6, profile="High", bitrate_kbps=4000)
# Just large enough for the window: the smaller the preview, the less of a processor it takes.
SCREEN = (1300, 1000)
SLOW_SHARE = 0.05
# A host whose encoders cannot keep up sends the rest too late, and cuts it off in the end.
SHORT_SECONDS = 1
RESULTS = ("main.flv", "vertical.flv", "vertical.ts", "frame.png", "host.png", "host.log")


def say(text: str) -> None:
    print(f"==> {text}", flush=True)


@dataclass(frozen=True)
class Target:
    """Where the vertical stream goes, and whether the main stream takes it along."""

    url: str
    key: str = ""
    follows_main: bool = True


@dataclass
class Run:
    """One run of the host: the streams as received, and everything that was wrong."""

    protocol: str
    frames: FrameCount | None = None
    leaks: int | None = None
    log: str = ""
    streams: dict[str, Received] = field(default_factory=dict)
    faults: list[str] = field(default_factory=list)

    def columns(self) -> list[Column]:
        return [Column(f"{name} ({self.protocol})", stream, self.frames, self.leaks)
                for name, stream in self.streams.items()]


def set_up(hands: Hands, target: Target) -> None:
    """What a person does before the first stream."""
    title = "Vertical Canvas \u2014 Settings"
    hands.choose(SETTINGS_ITEM)
    hands.window(title)
    hands.type(target.url, "urlEdit")
    hands.type(target.key, "keyEdit")
    if not target.follows_main:
        hands.click("autoStartCheck")
    hands.press("Save")
    hands.gone(title)
    hands.place_dock(RIGHT)
    hands.assign("Scene 1", "Stage")
    hands.give_name("addButton", "Add Scene", "Pause")
    hands.lists("\u25ba Scene 1 [Stage]", " Pause")
    hands.click_row("sceneList", 1)
    hands.assign("Pause", "Pause")
    hands.click_row("sceneList", 0)
    hands.lists("\u25ba Scene 1 [Stage]", " Pause [Pause]")


def go_live(host: LiveHost, hands: Hands, target: Target) -> None:
    hands.click("streamButton")
    wait_until(host.main_active, 20, "main stream on air")
    if not target.follows_main:
        # It is enabled only while the vertical stream has not started by itself.
        wait_until(lambda: hands.look("startButton")["enabled"], 20, "start button to press")
        hands.click("startButton")
    wait_until(host.vertical_active, 20, "vertical stream on air")
    host.wait_for_log("mux opened: ")
    hands.reads("statusLabel", "Streaming")
    say("both streams are on air")


def stay_live(host: LiveHost, seconds: int, take_picture: Callable[[], None]) -> None:
    began = time.monotonic()

    def on_air_until(mark: int) -> bool:
        if not (host.main_active() and host.vertical_active()):
            raise HostError("a stream ended before it was told to")
        return time.monotonic() - began >= mark

    marks = [*range(5, seconds, 5), seconds]
    for mark in marks:
        wait_until(lambda: on_air_until(mark), mark + 30, f"{mark} s on air")
        say(f"{mark} s on air")
        if mark == marks[len(marks) // 2]:
            take_picture()


def end(host: LiveHost, hands: Hands, seconds: int) -> None:
    """The vertical stream ends with the main one, however it was started."""
    hands.click("streamButton")
    wait_until(lambda: not host.main_active() and not host.vertical_active(), 60 + 5 * seconds,
               "both streams stopped")
    hands.reads("statusLabel", "Stopped")
    say("both streams have stopped")


def run_host(run: Run, folder: HostFolder, screen: VirtualScreen | OwnScreen, target: Target, seconds: int,
             picture: Path) -> None:
    host = LiveHost(folder, screen, "demo", "demo")
    try:
        say(f"{run.protocol}: starting the host")
        with host:
            hands = Hands(host)
            set_up(hands, target)
            say("the vertical canvas is set up")

            def take_picture() -> None:
                if not picture.exists() and not screen.grab(picture):
                    say("this screen does not let windows be pictured: no host.png")
            before = host.frames()
            go_live(host, hands, target)
            stay_live(host, seconds, take_picture)
            run.frames = host.frames() - before
            end(host, hands, seconds)
        run.leaks = host.leaks()
        if run.leaks != 0:
            run.faults.append("the host's log ends without a leak count" if run.leaks is None
                              else f"the host leaked {run.leaks} allocations")
    finally:
        run.log = host.log()


def check(run: Run, seconds: int, frame_path: Path) -> None:
    for name, received in run.streams.items():
        if received.videos and received.video.seconds < seconds - SHORT_SECONDS:
            run.faults.append(f"{name}: only {received.video.seconds:.1f} s arrived of the {seconds} s on air")
    run.faults += [f"main: {fault}" for fault in stream_faults(run.streams["main"], MAIN)]
    vertical = run.streams["vertical"]
    faults = stream_faults(vertical, VERTICAL)
    if vertical.videos:
        frame = vertical.frame(vertical.video.seconds / 2)
        Image.fromarray(frame).save(frame_path)
        faults += cover_faults(frame)
        if run.protocol == "SRT":
            faults += entry_faults(vertical)
    run.faults += [f"vertical: {fault}" for fault in faults]


def demonstrate(protocol: str, arguments: argparse.Namespace, root: Path, scenes: Mapping[str, Sequence[Source]],
                screen: VirtualScreen | OwnScreen) -> Run:
    """One whole run with the protocol; a run that breaks off is a fault like any other."""
    run = Run(protocol)
    out = arguments.out
    folder = HostFolder(root / "host")
    with RtmpServer(root / "rtmp") as rtmp, SrtListener(root / "srt") if protocol == "SRT" else nullcontext() as srt:
        target = Target(srt.url, follows_main=False) if srt else Target(rtmp.url, "vertical")
        folder.add_profile(Profile("demo", rtmp.url, "main"))
        folder.add_collection("demo", scenes)
        folder.install_module(built_module())
        try:
            run_host(run, folder, screen, target, arguments.seconds, out / "host.png")
            rtmp.wait_idle()
            vertical = srt.wait_hung_up() if srt else rtmp.recording("vertical")
            kept = {"main": rtmp.recording("main"), "vertical": vertical}
            for name, path in kept.items():
                copy = out / f"{name}{path.suffix}"
                # The second run's main stream is checked like the first one's, but only one is kept.
                run.streams[name] = Received(path if copy.exists() else Path(shutil.copyfile(path, copy)))
            check(run, arguments.seconds, out / "frame.png")
        except (DeadlineError, HostError, RequestError, OSError) as error:
            run.faults.append(f"broke off: {error}")
    return run


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="./dev demo", description=__doc__)
    parser.add_argument("--seconds", type=int, default=15, help="how long each run is on air (default 15)")
    parser.add_argument("--out", type=Path, required=True, help="folder of the results")
    only = parser.add_mutually_exclusive_group()
    only.add_argument("--rtmp", action="store_const", dest="protocols", const=["RTMP"], help="only the run over RTMP")
    only.add_argument("--srt", action="store_const", dest="protocols", const=["SRT"], help="only the run over SRT")
    parser.add_argument("--window", action="store_true", help="show the host on this screen")
    parser.set_defaults(protocols=["RTMP", "SRT"])
    arguments = parser.parse_args()
    if arguments.seconds < 2:
        parser.error("--seconds must be at least 2")
    return arguments


def main() -> int:
    arguments = parse_arguments()
    out = arguments.out
    out.mkdir(parents=True, exist_ok=True)
    for name in RESULTS:
        (out / name).unlink(missing_ok=True)  # so that nothing of an earlier demo passes for a result
    with tempfile.TemporaryDirectory() as temporary:
        root = Path(temporary)
        say("making the pictures and the tone")
        scenes = {"Stage": stage_sources(root), "Pause": pause_sources(root)}
        with OwnScreen() if arguments.window else VirtualScreen(*SCREEN) as screen:
            runs = [demonstrate(protocol, arguments, root / protocol, scenes, screen)
                    for protocol in arguments.protocols]
        (out / "host.log").write_text("".join(run.log for run in runs))
        columns = [column for run in runs for column in run.columns()]
        if columns:
            print(f"\n{table(columns)}\n")
    for run in runs:
        if run.frames and run.frames.lagged > SLOW_SHARE * run.frames.rendered:
            print(f"NOTE   {run.protocol}: the host repeated frames that it could not compose in time; without a\n"
                  "       graphics card it takes more than two free processor cores to compose them all.")
    faults = [f"{run.protocol}: {fault}" for run in runs for fault in run.faults]
    for fault in faults:
        print(f"FAULT  {fault}")
    print(f"{len(faults)} faults." if faults else "All is as it should be.", f"The results are in {out}")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
