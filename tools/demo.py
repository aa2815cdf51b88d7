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
from collections.abc import Mapping, Sequence
from contextlib import nullcontext
from dataclasses import dataclass, field
from pathlib import Path

from PIL import Image

from livehost.actions import RIGHT, UserActions
from livehost.checks import Format, stream_problems
from livehost.folder import HostFolder, Profile, Source, built_module
from livehost.host import FrameCount, HostError, LiveHost
from livehost.received import Received
from livehost.report import column, table
from livehost.scene import TONE_HZ, busy_sources, cover_problems, pause_sources
from livehost.screen import Screen, user_screen, virtual_screen
from livehost.servers import RtmpServer, SrtListener
from livehost.waiting import wait_until

MAIN = Format(1280, 720, audio_tracks=1, profile=None, tones_hz=[{TONE_HZ}])
VERTICAL = Format(bitrate_kbps=4000, tones_hz=[{TONE_HZ}] * 6)
# Just large enough for the window: the smaller the preview, the less of a processor it takes.
SCREEN = (1300, 1000)
SLOW_SHARE = 0.05
# A host whose encoders cannot keep up sends the rest too late, and cuts it off in the end.
SHORT_SECONDS = 1
RESULTS = ("main.flv", "vertical.flv", "vertical.ts", "frame.png", "host.png", "host.log")


def say(text: str) -> None:
    print(f"==> {text}", flush=True)


@dataclass
class Run:
    """One run of the host: the streams as received, and everything that was wrong."""

    protocol: str
    url: str
    host: LiveHost
    frames: FrameCount | None = None
    streams: dict[str, Received] = field(default_factory=dict)
    problems: list[str] = field(default_factory=list)


def set_up(user: UserActions, run: Run) -> None:
    """What a user does before the first stream."""
    user.open_settings()
    user.type(run.url, "urlEdit")
    if run.protocol == "RTMP":
        user.type("vertical", "keyEdit")
    else:
        user.click("autoStartCheck")
    user.save_settings()
    user.place_dock(RIGHT)
    user.assign("Scene 1", "Stage")
    user.give_name("addButton", "Add Scene", "Pause")
    user.lists("► Scene 1 [Stage]", " Pause")
    user.click("sceneList", 1)
    user.assign("Pause", "Pause")
    user.click("sceneList", 0)
    user.lists("► Scene 1 [Stage]", " Pause [Pause]")


def run_host(run: Run, screen: Screen, seconds: int, picture: Path) -> None:
    say(f"{run.protocol}: starting the host")
    with run.host as host:
        user = UserActions(host)
        set_up(user, run)
        say("the vertical canvas is set up")
        before = host.frames()
        user.click("streamButton")
        wait_until(host.main_active, 20, "main stream live")
        if run.protocol == "SRT":
            # It is enabled only while the vertical stream has not started by itself.
            wait_until(lambda: user.look("startButton")["enabled"], 20, "start button enabled")
            user.click("startButton")
        host.wait_for_log("mux opened: ")
        user.reads("statusLabel", "Streaming")
        say("both streams are live")
        for mark in (seconds / 2, seconds):
            time.sleep(seconds / 2)
            user.reads("statusLabel", "Streaming", seconds=0)
            say(f"{mark:g} s live")
            if not picture.exists() and not screen.grab(picture):
                say("this screen does not let windows be pictured: no host.png")
        run.frames = host.frames() - before
        user.click("streamButton")  # ends the vertical stream, too, however it was started
        wait_until(lambda: not host.main_active() and not host.vertical_active(), 60 + 5 * seconds, "streams ended")
        user.reads("statusLabel", "Stopped")
        say("both streams have stopped")


def check(run: Run, seconds: int, frame_path: Path) -> None:
    if run.host.leaks() != 0:
        run.problems.append(f"the host leaked {run.host.leaks() or 'an unknown number of'} allocations")
    for name, wanted in (("main", MAIN), ("vertical", VERTICAL)):
        stream = run.streams[name]
        problems = stream_problems(stream, wanted)
        if stream.videos and stream.video.seconds < seconds - SHORT_SECONDS:
            problems.append(f"only {stream.video.seconds:.1f} s arrived of the {seconds} s live")
        if stream.videos and name == "vertical":
            frame = stream.frame(stream.video.seconds / 2)
            Image.fromarray(frame).save(frame_path)
            problems += cover_problems(frame)
        run.problems += [f"{name}: {problem}" for problem in problems]


def demonstrate(protocol: str, arguments: argparse.Namespace, root: Path, scenes: Mapping[str, Sequence[Source]],
                screen: Screen) -> Run:
    """One whole run with the protocol; a run that breaks off is a problem like any other."""
    out = arguments.out
    folder = HostFolder(root / "host")
    folder.add_collection("demo", scenes)
    folder.install_module(built_module())
    with RtmpServer(root / "rtmp") as rtmp, SrtListener(root / "srt") if protocol == "SRT" else nullcontext() as srt:
        folder.add_profile(Profile("demo", rtmp.url, "main"))
        run = Run(protocol, (srt or rtmp).url, LiveHost(folder, screen, "demo", "demo"))
        try:
            run_host(run, screen, arguments.seconds, out / "host.png")
            kept = {"main": rtmp.recording("main"), "vertical": srt.recording() if srt else rtmp.recording("vertical")}
            for name, path in kept.items():
                copy = out / f"{name}{path.suffix}"
                # The second run's main stream is checked like the first one's, but only one is kept.
                run.streams[name] = Received(path if copy.exists() else Path(shutil.copyfile(path, copy)))
            check(run, arguments.seconds, out / "frame.png")
        except (HostError, OSError) as error:
            run.problems.append(f"broke off: {error}")
    return run


def main() -> int:
    parser = argparse.ArgumentParser(prog="./dev demo", description=__doc__)
    parser.add_argument("--seconds", type=int, choices=range(2, 3601), default=15, metavar="N",
                        help="how long each run is live (default 15)")
    parser.add_argument("--out", type=Path, required=True, help="folder of the results")
    parser.add_argument("--rtmp", action="append_const", dest="protocols", const="RTMP", help="only the run over RTMP")
    parser.add_argument("--srt", action="append_const", dest="protocols", const="SRT", help="only the run over SRT")
    parser.add_argument("--window", action="store_true", help="show the host on this screen")
    arguments = parser.parse_args()
    out = arguments.out
    out.mkdir(parents=True, exist_ok=True)
    for name in RESULTS:
        (out / name).unlink(missing_ok=True)  # so that nothing of an earlier demo passes for a result
    with (tempfile.TemporaryDirectory() as temporary,
          nullcontext(user_screen()) if arguments.window else virtual_screen(*SCREEN) as screen):
        root = Path(temporary)
        say("making the pictures and the tone")
        scenes = {"Stage": busy_sources(root), "Pause": pause_sources(root)}
        runs = [demonstrate(protocol, arguments, root / protocol, scenes, screen)
                for protocol in arguments.protocols or ("RTMP", "SRT")]
    (out / "host.log").write_text("".join(run.host.log() for run in runs))
    print("", table([column(f"{name} ({run.protocol})", stream, run.frames, run.host.leaks())
                     for run in runs for name, stream in run.streams.items() if stream.videos]), "", sep="\n")
    for run in runs:
        if run.frames and run.frames.lagged > SLOW_SHARE * run.frames.rendered:
            print(f"NOTE   {run.protocol}: the host repeated frames that it could not compose in time; without a\n"
                  "       graphics card it takes more than two free processor cores to compose them all.")
    problems = [f"PROBLEM  {run.protocol}: {problem}" for run in runs for problem in run.problems]
    print(*problems, f"{len(problems)} problems." if problems else "All is as it should be.", sep="\n")
    print(f"The results are in {out}")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
