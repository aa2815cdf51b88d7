# SPDX-License-Identifier: GPL-2.0-or-later
"""What a second canvas costs: the host with the module, the host alone, and two hosts.

The host streams its wide canvas in all three. The vertical stream is the module's, or that of a
second host which has the vertical canvas as its own, with the same encoder, its settings and the
same picture.
"""

import dataclasses
import os
import shutil
import time
from contextlib import ExitStack
from pathlib import Path

from livehost.folder import HostFolder, Profile, Source, built_module
from livehost.host import LiveHost
from livehost.received import Received
from livehost.scene import HEIGHT, WIDTH, stage_sources
from livehost.servers import RtmpServer
from livehost.waiting import wait_until

from .report import Result, Table
from .rounds import Figures, Runs, interleave, ratio, spread
from .setting import Setting

ALONE, MODULE, TWO_HOSTS = "host alone", "host with the module", "two hosts"
_STREAMS = {ALONE: ("main",), MODULE: ("main", "vertical"), TWO_HOSTS: ("main", "vertical")}
_TALL_WIDTH, _TALL_HEIGHT, _KBPS, _FPS = 1080, 1920, 4000, 30
_SIZES = {"main": (WIDTH, HEIGHT), "vertical": (_TALL_WIDTH, _TALL_HEIGHT)}
# What the module gives its software encoder.
_X264 = {"bitrate": _KBPS, "rate_control": "CBR", "keyint_sec": 2, "preset": "veryfast", "profile": "high",
         "tune": "zerolatency", "x264opts": "bframes=0:aud=1:repeat-headers=1"}
_WARM_UP_SECONDS, _SECONDS, _QUICK_SECONDS = 5, 15, 2
_TICKS_PER_SECOND = os.sysconf("SC_CLK_TCK")
_CPU, _MEMORY, _IDLE, _LAGGED, _SKIPPED, _RENDERED = (
    "CPU, seconds per second", "memory, MiB", "machine's processors idle, %", "lagged frames, %", "skipped frames, %",
    "rendered frames per second")


class Stage:
    """The hosts of a candidate, on fresh folders, before one server."""

    def __init__(self, setting: Setting, rtmp: RtmpServer) -> None:
        self._setting, self._rtmp = setting, rtmp
        self._wide = stage_sources(setting.root)
        # As the module places the scene: covering the canvas, in the middle.
        scale = _TALL_HEIGHT / HEIGHT
        left = (_TALL_WIDTH - scale * WIDTH) / 2
        self._tall = [dataclasses.replace(source, x=left + scale * source.x, y=scale * source.y, scale=scale)
                      for source in self._wide]

    def hosts(self, candidate: str) -> list[LiveHost]:
        keys = {"rtmpurl": self._rtmp.url, "streamkey": "vertical", "videobitrate": _KBPS,
                "canvaswidth": _TALL_WIDTH, "canvasheight": _TALL_HEIGHT, "encoderpreset": _X264["preset"]}
        wide = Profile("P", self._rtmp.url, "main", WIDTH, HEIGHT, _FPS, vertical=keys)
        tall = Profile("P", self._rtmp.url, "vertical", _TALL_WIDTH, _TALL_HEIGHT, _FPS, x264=_X264)
        hosts = [self._host("wide", wide, self._wide, candidate == MODULE)]
        if candidate == TWO_HOSTS:
            hosts.append(self._host("tall", tall, self._tall, False))
        return hosts

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

    def received(self, candidate: str) -> dict[str, Received]:
        self._rtmp.wait_idle()
        return {key: Received(self._rtmp.recording(key)) for key in _STREAMS[candidate]}


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
    rendered, encoded = (sum(getattr(count, name) for count in counted) for name in ("rendered", "encoded"))
    return {_CPU: spent / span, _MEMORY: sum(memory_mib(host.pid) for host in hosts),
            _IDLE: 100 * idle / span / os.cpu_count(),
            _LAGGED: 100 * sum(count.lagged for count in counted) / rendered,
            _SKIPPED: 100 * sum(count.skipped for count in counted) / max(encoded, 1),
            _RENDERED: rendered / span}


def run_once(stage: Stage, candidate: str, warm_up: float, seconds: float) -> Figures:
    hosts = stage.hosts(candidate)
    with ExitStack() as stack:
        for host in hosts:
            stack.enter_context(host)
        for host in hosts:
            host.request("StartStream")
        wait_until(lambda: all(host.main_active() for host in hosts), 30, "host's stream on air")
        if candidate == MODULE:
            hosts[0].wait_for_log("first TS keyframe written")
        time.sleep(warm_up)
        figures = dict(observe(hosts, seconds))
        for host in hosts:
            host.request("StopStream")
        wait_until(lambda: not any(host.main_active() or host.vertical_active() for host in hosts), 90, "streams ended")
    for key, stream in stage.received(candidate).items():
        facts = stream.video.facts
        if (facts["width"], facts["height"]) != _SIZES[key]:
            raise RuntimeError(f"{candidate}: {key} arrived with {facts['width']}x{facts['height']}")
        figures |= {f"{key} fps": stream.video.packets_per_second, f"{key} kbps": stream.video.bitrate_kbps,
                    f"{key} audio": len(stream.audios)}
    return figures


def measure(setting: Setting) -> list[Result]:
    with RtmpServer(setting.root / "rtmp") as rtmp:
        stage = Stage(setting, rtmp)
        warm_up, seconds = (1, _QUICK_SECONDS) if setting.quick else (_WARM_UP_SECONDS, _SECONDS)
        runs = interleave(list(_STREAMS), setting.rounds, lambda candidate: run_once(stage, candidate, warm_up, seconds),
                          setting.progress)
    return tables(runs)


def tables(runs: Runs) -> list[Result]:
    return [
        Table("Second canvas: ratios", ["figure", "module / two hosts", "module / host alone", "two hosts / host alone"],
              [[figure, *(ratio(runs, *pair, figure) for pair in ((MODULE, TWO_HOSTS), (MODULE, ALONE), (TWO_HOSTS, ALONE)))]
               for figure in (_CPU, _MEMORY)]),
        Table("Second canvas: all hosts together", ["figure", *_STREAMS],
              [[figure, *(spread(runs, candidate, figure) for candidate in _STREAMS)]
               for figure in (_CPU, _MEMORY, _RENDERED, _LAGGED, _SKIPPED, _IDLE)],
              "A lagged frame is repeated instead of composed, which takes less: the CPU time of candidates that lag "
              "differently does not compare."),
        Table("Second canvas: streams as received", ["stream", "size", "frames per second", "video, kbit/s", "sound tracks"],
              [[f"{key}, {candidate}", "{}x{}".format(*_SIZES[key]), spread(runs, candidate, f"{key} fps"),
                spread(runs, candidate, f"{key} kbps"), spread(runs, candidate, f"{key} audio")]
               for candidate, keys in _STREAMS.items() for key in keys]),
    ]
