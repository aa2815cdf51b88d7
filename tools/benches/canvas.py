# SPDX-License-Identifier: GPL-2.0-or-later
"""What a second canvas costs: the host with the module, the host alone, and two hosts.

The host streams its wide canvas in all three. The vertical stream is the module's, or that of a
second host which has the vertical canvas as its own, with the same encoder, its settings and the
same picture.
"""

import os
import re
import shutil
import time
from contextlib import ExitStack
from dataclasses import dataclass, replace
from pathlib import Path

from livehost.folder import HostFolder, Profile, Source, built_module
from livehost.host import LiveHost
from livehost.received import Received
from livehost.scene import HEIGHT, WIDTH, stage_sources
from livehost.servers import RtmpServer
from livehost.waiting import wait_until

from .report import Result, Table
from .rounds import Figures, Runs, Spread, interleave, ratio, spread
from .setting import Setting

_FPS = 30
_WIDE = (WIDTH, HEIGHT)


@dataclass(frozen=True)
class Tall:
    """The vertical stream, with the module's own settings for its software encoder."""

    width: int
    height: int
    kbps: int

    @property
    def x264(self) -> dict[str, object]:
        return {"bitrate": self.kbps, "rate_control": "CBR", "keyint_sec": 2, "preset": "veryfast", "profile": "high",
                "tune": "zerolatency", "x264opts": "bframes=0:aud=1:repeat-headers=1"}

    def __str__(self) -> str:
        return f"{self.width}x{self.height}"


# The default, and one that a processor without a graphics card composes in time.
TALLS = (Tall(540, 960, 1500), Tall(1080, 1920, 4000))


@dataclass(frozen=True)
class Candidate:
    """Who streams the vertical canvas beside the host that streams the wide one; nobody where there is none."""

    who: str
    tall: Tall | None = None

    @property
    def sizes(self) -> dict[str, tuple[int, int]]:
        """Of its streams, by key."""
        return {"main": _WIDE} | ({"vertical": (self.tall.width, self.tall.height)} if self.tall else {})

    def __str__(self) -> str:
        return f"{self.who}, {self.tall}" if self.tall else self.who


MODULE, TWO_HOSTS = "module", "two hosts"
ALONE = Candidate("host alone")
CANDIDATES = (ALONE, *(Candidate(who, tall) for tall in TALLS for who in (MODULE, TWO_HOSTS)))
_WARM_UP_SECONDS, _SECONDS, _QUICK_SECONDS = 4, 10, 2
_TICKS_PER_SECOND = os.sysconf("SC_CLK_TCK")
_CPU, _MEMORY, _IDLE, _LAGGED, _SKIPPED, _RENDERED = (
    "CPU, seconds per second", "memory, MiB", "machine's processors idle, %", "lagged frames, %", "skipped frames, all run",
    "rendered frames per second")


class Stage:
    """The hosts of a candidate, on fresh folders, before one server."""

    def __init__(self, setting: Setting, rtmp: RtmpServer) -> None:
        self._setting, self._rtmp = setting, rtmp
        self._wide = stage_sources(setting.root)

    def hosts(self, candidate: Candidate) -> list[LiveHost]:
        wide = Profile("P", self._rtmp.url, "main", *_WIDE, _FPS, vertical=self._keys(candidate.tall))
        hosts = [self._host("wide", wide, self._wide, candidate.who == MODULE)]
        if candidate.who == TWO_HOSTS:
            tall = candidate.tall
            profile = Profile("P", self._rtmp.url, "vertical", tall.width, tall.height, _FPS, x264=tall.x264)
            hosts.append(self._host("tall", profile, self._covering(tall), False))
        return hosts

    def _keys(self, tall: Tall | None) -> dict[str, object]:
        return {"rtmpurl": self._rtmp.url, "streamkey": "vertical", "videobitrate": tall.kbps, "canvaswidth": tall.width,
                "canvasheight": tall.height, "encoderpreset": tall.x264["preset"]} if tall else {}

    def _covering(self, tall: Tall) -> list[Source]:
        """As the module places the scene: covering the canvas, in the middle."""
        scale = tall.height / HEIGHT
        left = (tall.width - scale * WIDTH) / 2
        return [replace(source, x=left + scale * source.x, y=scale * source.y, scale=scale) for source in self._wide]

    def _host(self, name: str, profile: Profile, sources: list[Source], module: bool) -> LiveHost:
        root = self._setting.root / name
        shutil.rmtree(root, ignore_errors=True)
        folder = HostFolder(root)
        folder.add_profile(profile)
        folder.add_collection("C", {"Stage": sources})
        if module:
            folder.save_vertical_scenes({"One": "Stage"}, "One")
            folder.install_module(built_module(self._setting.build.name))
        return LiveHost(folder, self._setting.screen, "P", "C")

    def received(self, candidate: Candidate) -> dict[str, Received]:
        self._rtmp.wait_idle()
        return {key: Received(self._rtmp.recording(key)) for key in candidate.sizes}


def cpu_seconds(pid: int) -> float:
    """User and system time of a process so far."""
    fields = Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / _TICKS_PER_SECOND


def memory_mib(pid: int) -> float:
    """What the process holds, shared pages in proportion."""
    lines = Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()
    return next(int(line.split()[1]) for line in lines if line.startswith("Pss:")) / 1024


def idle_seconds() -> float:
    """Of all processors together so far."""
    return int(Path("/proc/stat").read_text().split()[4]) / _TICKS_PER_SECOND


def observe(hosts: list[LiveHost], seconds: float) -> Figures:
    """What all hosts together take over a span."""
    frames, cpu = [host.frames() for host in hosts], [cpu_seconds(host.pid) for host in hosts]
    begin, idle = time.monotonic(), idle_seconds()
    time.sleep(seconds)
    span, idle = time.monotonic() - begin, idle_seconds() - idle
    spent = sum(cpu_seconds(host.pid) - before for host, before in zip(hosts, cpu))
    counted = [host.frames() - before for host, before in zip(hosts, frames)]
    rendered = sum(count.rendered for count in counted)
    return {_CPU: spent / span, _MEMORY: sum(memory_mib(host.pid) for host in hosts),
            _IDLE: 100 * idle / span / os.cpu_count(),
            _LAGGED: 100 * sum(count.lagged for count in counted) / rendered,
            _RENDERED: rendered / span}


def skipped_frames(hosts: list[LiveHost]) -> int:
    """Frames that came too fast for their encoder, of all streams that have ended."""
    return sum(int(count) for host in hosts
               for count in re.findall(r"skipped frames due to encoding lag: (\d+)/", host.log()))


def run_once(stage: Stage, candidate: Candidate, warm_up: float, seconds: float) -> Figures:
    hosts = stage.hosts(candidate)
    with ExitStack() as stack:
        for host in hosts:
            stack.enter_context(host)
        for host in hosts:
            host.request("StartStream")
        wait_until(lambda: all(host.main_active() for host in hosts), 30, "host's stream on air")
        if candidate.who == MODULE:
            hosts[0].wait_for_log("first TS keyframe written")
        time.sleep(warm_up)
        figures = dict(observe(hosts, seconds))
        for host in hosts:
            host.request("StopStream")
        wait_until(lambda: not any(host.main_active() or host.vertical_active() for host in hosts), 90, "streams ended")
    figures[_SKIPPED] = skipped_frames(hosts)
    for key, stream in stage.received(candidate).items():
        facts = stream.video.facts
        if (facts["width"], facts["height"]) != candidate.sizes[key]:
            raise RuntimeError(f"{candidate}: {key} arrived with {facts['width']}x{facts['height']}")
        figures |= {f"{key} fps": stream.video.packets_per_second, f"{key} kbps": stream.video.bitrate_kbps,
                    f"{key} audio": len(stream.audios)}
    return figures


def measure(setting: Setting) -> list[Result]:
    by_name = {str(candidate): candidate for candidate in CANDIDATES}
    with RtmpServer(setting.root / "rtmp") as rtmp:
        stage = Stage(setting, rtmp)
        warm_up, seconds = (1, _QUICK_SECONDS) if setting.quick else (_WARM_UP_SECONDS, _SECONDS)
        runs = interleave(list(by_name), setting.rounds,
                          lambda name: run_once(stage, by_name[name], warm_up, seconds), setting.progress)
    return tables(runs)


def tables(runs: Runs) -> list[Result]:
    figures = (_CPU, _MEMORY, _RENDERED, _LAGGED, _SKIPPED, _IDLE)
    return [
        Table("Second canvas: ratios", ["vertical stream, figure", "module / two hosts", "module / host alone",
                                        "two hosts / host alone"],
              [[f"{tall}, {figure}", *_ratios(runs, tall, figure)] for tall in TALLS for figure in (_CPU, _MEMORY)]),
        Table("Second canvas: all hosts together", ["", *figures],
              [[str(candidate), *(spread(runs, str(candidate), figure) for figure in figures)]
               for candidate in CANDIDATES],
              "A lagged frame is repeated instead of composed, which takes less: the CPU time of candidates that lag "
              "differently does not compare."),
        Table("Second canvas: streams as received", ["stream", "size", "frames per second", "video, kbit/s", "sound tracks"],
              [[f"{key}: {candidate}", f"{width}x{height}",
                *(spread(runs, str(candidate), f"{key} {figure}") for figure in ("fps", "kbps", "audio"))]
               for candidate in CANDIDATES for key, (width, height) in candidate.sizes.items()]),
    ]


def _ratios(runs: Runs, tall: Tall, figure: str) -> list[Spread]:
    module, two_hosts = (str(Candidate(who, tall)) for who in (MODULE, TWO_HOSTS))
    return [ratio(runs, *pair, figure) for pair in ((module, two_hosts), (module, str(ALONE)), (two_hosts, str(ALONE)))]
