# SPDX-License-Identifier: GPL-2.0-or-later
"""What a second canvas costs: the host with the module, the host alone, and two hosts.

The host streams its wide canvas in all three. The vertical stream is the module's, or that of a second host which has
the vertical canvas as its own, with the same encoder, its settings and the same picture.
"""

import os
import shutil
import tempfile
import time
from collections import defaultdict
from collections.abc import Iterator, Sequence
from contextlib import ExitStack
from dataclasses import dataclass, replace
from pathlib import Path

from livehost.folder import HostFolder, Profile, Source, built_module
from livehost.host import LiveHost
from livehost.received import Received
from livehost.scene import HEIGHT, WIDTH, busy_sources
from livehost.screen import Screen, virtual_screen
from livehost.servers import RtmpServer
from livehost.waiting import wait_until

from measuring import Report, Rounds, Setting, column, ratio

ALONE, MODULE, TWO_HOSTS = "host alone", "module", "two hosts"
FIGURES = ("start, s", "idle CPU, %", "CPU, %", "memory, MiB", "frames lagged, %")
TICKS_PER_SECOND = os.sysconf("SC_CLK_TCK")


@dataclass(frozen=True)
class Vertical:
    width: int
    height: int
    kbps: int

    def x264(self) -> dict[str, object]:
        """The settings that the module gives the encoder."""
        return {"bitrate": self.kbps, "rate_control": "CBR", "keyint_sec": 2, "preset": "veryfast", "profile": "high",
                "tune": "zerolatency", "x264opts": "bframes=0:aud=1:repeat-headers=1"}

    def covered_by(self, sources: Sequence[Source]) -> list[Source]:
        """As the module places a scene: in the middle, covering the canvas."""
        scale = self.height / HEIGHT
        left = (self.width - scale * WIDTH) / 2
        return [replace(source, x=left + scale * source.x, y=scale * source.y, scale=scale) for source in sources]


# The second is the default; two processors without a graphics card draw only the first in time.
VERTICALS = (Vertical(540, 960, 1500), Vertical(1080, 1920, 4000))


@dataclass(frozen=True)
class Setup:
    """What the hosts of all rounds share."""

    root: Path
    module: Path
    screen: Screen
    rtmp: RtmpServer
    sources: Sequence[Source]

    def host(self, profile: Profile, sources: Sequence[Source], module: bool = False) -> LiveHost:
        shutil.rmtree(self.root / profile.key, ignore_errors=True)
        folder = HostFolder(self.root / profile.key)
        folder.add_profile(profile)
        folder.add_collection("C", {"Stage": sources})
        if module:
            folder.save_vertical_scenes({"One": "Stage"}, "One")
            folder.install_module(self.module)
        return LiveHost(folder, self.screen, profile.name, "C")

    def hosts(self, who: str, tall: Vertical) -> Iterator[LiveHost]:
        keys = {"rtmpurl": self.rtmp.url, "streamkey": "vertical", "videobitrate": tall.kbps,
                "canvaswidth": tall.width, "canvasheight": tall.height}
        yield self.host(Profile("P", self.rtmp.url, "main", WIDTH, HEIGHT, vertical=keys), self.sources, who == MODULE)
        if who == TWO_HOSTS:
            yield self.host(Profile("P", self.rtmp.url, "vertical", tall.width, tall.height, x264=tall.x264()),
                            tall.covered_by(self.sources))


def cpu_seconds(hosts: Sequence[LiveHost]) -> float:
    fields = [Path(f"/proc/{host.process.pid}/stat").read_text().rpartition(")")[2].split() for host in hosts]
    return sum(int(ticks) for each in fields for ticks in each[11:13]) / TICKS_PER_SECOND


def memory_mib(host: LiveHost) -> float:
    """Pages that processes share count in proportion."""
    lines = Path(f"/proc/{host.process.pid}/smaps_rollup").read_text().splitlines()
    return next(int(line.split()[1]) for line in lines if line.startswith("Pss:")) / 1024


def observe(hosts: Sequence[LiveHost], seconds: float) -> dict[str, float]:
    """What all hosts together take in so many seconds."""
    frames = [host.frames() for host in hosts]
    begin, cpu = time.monotonic(), cpu_seconds(hosts)
    time.sleep(seconds)
    span, cpu = time.monotonic() - begin, cpu_seconds(hosts) - cpu
    frames = [host.frames() - earlier for host, earlier in zip(hosts, frames)]
    return {"CPU, %": 100 * cpu / span, "memory, MiB": sum(map(memory_mib, hosts)),
            "frames lagged, %": 100 * sum(each.lagged for each in frames) / sum(each.rendered for each in frames)}


def run(setup: Setup, who: str, tall: Vertical, seconds: float) -> dict[str, float]:
    with ExitStack() as stack:
        begin = time.monotonic()
        hosts = [stack.enter_context(host) for host in setup.hosts(who, tall)]
        started = time.monotonic() - begin  # all have answered a request
        idle = observe(hosts, seconds / 2)
        for host in hosts:
            host.request("StartStream")
        wait_until(lambda: all(host.main_active() for host in hosts), 30, "host's stream live")
        if who == MODULE:
            wait_until(hosts[0].vertical_active, 30, "vertical stream live")
        time.sleep(seconds / 2)
        figures = observe(hosts, seconds)
        for host in hosts:
            host.request("StopStream")
        wait_until(lambda: not any(host.main_active() or host.vertical_active() for host in hosts), 90, "streams ended")
    if who != ALONE:
        facts = Received(setup.rtmp.recording("vertical")).video.facts
        if (facts["width"], facts["height"]) != (tall.width, tall.height):
            raise RuntimeError(f"{who}: a vertical stream of {facts['width']}x{facts['height']} arrived")
    return figures | {"start, s": started, "idle CPU, %": idle["CPU, %"]}


def measure(setting: Setting) -> Iterator[Report]:
    candidates = {ALONE: (ALONE, VERTICALS[0])} | {
        f"{who}, {tall.width}x{tall.height}": (who, tall) for tall in VERTICALS for who in (MODULE, TWO_HOSTS)}
    rounds: Rounds = defaultdict(list)
    with tempfile.TemporaryDirectory() as folder, virtual_screen() as screen, RtmpServer(Path(folder, "rtmp")) as rtmp:
        setup = Setup(Path(folder), built_module(), screen, rtmp, busy_sources(Path(folder)))
        for _ in setting.rounds(minutes=7):
            for name, (who, tall) in candidates.items():
                rounds[name].append(run(setup, who, tall, seconds=2 if setting.quick else 10))
                yield canvas_report(rounds)


def canvas_report(rounds: Rounds) -> Report:
    report = Report(rounds)
    report.table("Second canvas: all hosts together", list(rounds),
                 {figure: column(rounds, figure) for figure in FIGURES})
    for base in (lambda _: ALONE, lambda name: name.replace(MODULE, TWO_HOSTS)):
        report.table(f"Second canvas, in units of {base(MODULE)}", [name for name in rounds if base(name) != name],
                     {figure: ratio(rounds, figure, base) for figure in FIGURES[:4]})
    return report
