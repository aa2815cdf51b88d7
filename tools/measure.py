#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-or-later
"""Measurements in the real host, for a quiet machine.

clock  what a host at another frame rate than the canvas does to the received stream's clock
cost   what the module costs the host: start-up, idle, and the main stream beside the vertical one
pauses for how long the host's event loop stands still while the dock starts and stops a stream
"""

import argparse
import os
import shutil
import socket
import statistics
import tempfile
import time
from collections.abc import Callable
from contextlib import suppress
from pathlib import Path

from livehost import remote, waiting
from livehost.folder import HostFolder, Profile, Source, built_module
from livehost.hands import Hands
from livehost.host import FrameCount, LiveHost
from livehost.received import Received
from livehost.scene import clip_source, make_clip, marking_source
from livehost.screen import VirtualScreen
from livehost.servers import RtmpServer
from livehost.waiting import wait_until

TICKS_PER_SECOND = os.sysconf("SC_CLK_TCK")

# Waiting in the usual steps would blur the time of the start.
waiting.POLL_SECONDS = remote.POLL_SECONDS = 0.002


class Bench:
    def __init__(self, root: Path, screen: VirtualScreen, rtmp: RtmpServer) -> None:
        self.root, self.screen, self.rtmp = root, screen, rtmp
        self.still = marking_source(root / "still.png")
        self.clip = clip_source(root / "clip.mp4")
        make_clip(root / "clip.mp4")

    def host(self, picture: Source, module: bool = True, fps: int = 30, **vertical: object) -> LiveHost:
        """A host on a fresh folder; its vertical canvas keeps the module's default format."""
        shutil.rmtree(self.root / "folder", ignore_errors=True)
        folder = HostFolder(self.root / "folder")
        keys = {"rtmpurl": self.rtmp.url, "streamkey": "vertical"} | vertical
        folder.add_profile(Profile("P", self.rtmp.url, fps=fps, vertical=keys))
        folder.add_collection("C", {"Main": [picture]})
        folder.save_vertical_scenes({"One": "Main"}, "One")
        if module:
            folder.install_module(built_module())
        return LiveHost(folder, self.screen, "P", "C")

    def streamed(self) -> Received:
        self.rtmp.wait_idle()
        return Received(self.rtmp.recording("vertical"))


def start_stream(host: LiveHost, vertical: bool) -> None:
    host.request("StartStream")
    wait_until(host.main_active, 20, "main stream")
    if vertical:
        host.wait_for_log("first TS keyframe written")


def stop_stream(host: LiveHost) -> None:
    host.request("StopStream")
    wait_until(lambda: not host.main_active() and not host.vertical_active(), 60, "streams ended")


def sent_frames(host: LiveHost) -> int:
    return host.request("GetOutputStatus", outputName=host.vertical_output()["outputName"])["outputTotalFrames"]


def measure_clock(bench: Bench, seconds: float) -> None:
    """The video's own time against the wall's, by its frames sent, and against its audio's, as received."""
    print(f"{'host':>5} {'canvas':>7} {'video s':>8} {'audio s':>8} {'frames/wall s':>13} "
          f"{'video/audio':>11} {'lagged':>7}")
    for fps in (60, 30):
        with bench.host(bench.still, fps=fps, canvaswidth=216, canvasheight=384) as host:
            start_stream(host, vertical=True)
            before, begin, sent = host.frames(), time.monotonic(), sent_frames(host)
            time.sleep(seconds)
            rate = (sent_frames(host) - sent) / (time.monotonic() - begin)
            frames = host.frames() - before
            stop_stream(host)
        received = bench.streamed()
        video, audio = received.video.seconds, received.audios[0].seconds
        print(f"{fps:>5} {'30/1':>7} {video:8.2f} {audio:8.2f} {rate:13.2f} {video / audio:11.4f} "
              f"{frames.lagged / frames.rendered:7.1%}", flush=True)


def cpu_seconds(pid: int) -> float:
    """User and system time of a process so far."""
    fields = Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / TICKS_PER_SECOND


def over(host: LiveHost, seconds: float) -> tuple[float, FrameCount]:
    """The host's CPU time in per cent of one core, and its frames, over a span."""
    begin, cpu, frames = time.monotonic(), cpu_seconds(host.pid), host.frames()
    time.sleep(seconds)
    return 100 * (cpu_seconds(host.pid) - cpu) / (time.monotonic() - begin), host.frames() - frames


def measure_once(bench: Bench, module: bool, seconds: float) -> dict[str, float]:
    host = bench.host(bench.clip, module)
    begin = time.monotonic()
    with host:
        # The front end has finished loading when it first answers a request.
        startup_ms = 1000 * (time.monotonic() - begin)
        idle, _ = over(host, seconds)
        start_stream(host, module)
        live, frames = over(host, seconds)
        stop_stream(host)
    return {"start-up ms": startup_ms, "idle CPU %": idle, "live CPU %": live,
            "frames lagged %": 100 * frames.lagged / frames.rendered,
            "frames skipped %": 100 * frames.skipped / max(frames.encoded, 1)}


def measure_cost(bench: Bench, seconds: float, rounds: int) -> None:
    """In turns, so that what else the machine does falls on both alike."""
    without, with_module = [], []
    for number in range(rounds):
        without.append(measure_once(bench, False, seconds))
        with_module.append(measure_once(bench, True, seconds))
        print(f"round {number + 1} of {rounds}, load {os.getloadavg()[0]:.1f}", flush=True)
    print(f"{'median':<18} {'without':>9} {'with':>9} {'more':>9}")
    for figure in without[0]:
        bare, ours = (statistics.median(run[figure] for run in runs) for runs in (without, with_module))
        print(f"{figure:<18} {bare:9.1f} {ours:9.1f} {ours - bare:9.1f}")


def pause(hands: Hands, action: Callable[[], object], seconds: float) -> int:
    """The longest standstill, in ms, from the action until so many seconds later."""
    hands.longest_pause_ms()
    action()
    time.sleep(seconds)
    return hands.longest_pause_ms()


def measure_pauses(bench: Bench, seconds: float, rounds: int) -> None:
    """Against a server that records, one that refuses, and one that takes the call and never answers.
    A step of which the loop does not come back ends the measurement of its server."""
    def nothing() -> None:
        pass

    with socket.create_server(("127.0.0.1", 0)) as silent:
        servers = {"recording": bench.rtmp.url, "refusing": "rtmp://127.0.0.1:1/live",
                   "silent": f"rtmp://127.0.0.1:{silent.getsockname()[1]}/live"}
        print(f"{'median/longest ms':<18}" + "".join(f"{step:>12}" for step in ("nothing", "start", "live", "stop")))
        for server, url in servers.items():
            found: list[list[int]] = [[], [], [], []]
            host = bench.host(bench.still, rtmpurl=url, canvaswidth=216, canvasheight=384)
            with suppress(TimeoutError), host:
                hands = Hands(host)
                for _ in range(rounds):
                    found[0].append(pause(hands, nothing, seconds))
                    found[1].append(pause(hands, lambda: hands.click("startButton"), seconds))
                    if len(hands.windows()) > 2:
                        hands.press("OK")  # the box that tells of the refusal
                    found[2].append(pause(hands, nothing, seconds))
                    found[3].append(pause(hands, lambda: hands.click("stopButton"), seconds))
            figures = (f"{statistics.median(step):.0f}/{max(step)}" if step else "no end" for step in found)
            print(f"{server:<18}" + "".join(f"{figure:>12}" for figure in figures), flush=True)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("what", choices=("clock", "cost", "pauses"))
    parser.add_argument("--seconds", type=float, help="length of one measurement (clock 60, cost 10, pauses 5)")
    parser.add_argument("--rounds", type=int, default=5, help="of each kind of host or server (cost, pauses)")
    chosen = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        root = Path(folder)
        with VirtualScreen() as screen, RtmpServer(root / "rtmp") as rtmp:
            bench = Bench(root, screen, rtmp)
            print(f"load at the start {os.getloadavg()[0]:.1f}", flush=True)
            if chosen.what == "clock":
                measure_clock(bench, chosen.seconds or 60)
            elif chosen.what == "pauses":
                measure_pauses(bench, chosen.seconds or 5, chosen.rounds)
            else:
                measure_cost(bench, chosen.seconds or 10, chosen.rounds)


if __name__ == "__main__":
    main()
