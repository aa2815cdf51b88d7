# SPDX-License-Identifier: GPL-2.0-or-later
"""The real host on air for an hour: what grows, drifts or stumbles only in the long run."""

import time
from dataclasses import asdict, replace
from pathlib import Path
from typing import Any

from livehost.folder import HostFolder, Profile, built_module
from livehost.hands import Hands
from livehost.host import FrameCount, LiveHost
from livehost.scene import clip_source, make_clip
from livehost.stage import start, stop
from livehost.waiting import wait_until

from .receivers import RtmpReceiver
from .row import RESILIENT, Result, Row
from .stage import KEY
from .trial import Trial

_SAMPLE_SECONDS = 60
_WARM_UP_SECONDS = 60
_MOST_DRIFT_SECONDS = 0.2
_MOST_GROWTH_MB = 50
_MOST_LAGGED_SHARE = 0.05
_LONGEST_PAUSE_MS = 1000


def _memory_mb(pid: int) -> dict[str, int]:
    lines = Path(f"/proc/{pid}/status").read_text().splitlines()
    values = dict(line.split(":", 1) for line in lines)
    return {name: int(values[key].split()[0]) // 1024 for name, key in (("rss_mb", "VmRSS"), ("peak_mb", "VmHWM"))}


class _Watch:
    """Samples of a host that streams, taken once a minute and kept as a line each in hour.log."""

    def __init__(self, trial: Trial, host: LiveHost, hands: Hands, receiver: RtmpReceiver) -> None:
        self._host, self._hands, self._receiver = host, hands, receiver
        self._log = trial.folder / "hour.log"
        self._began = time.monotonic()
        self.samples: list[dict[str, Any]] = []
        self.longest_pause_ms = 0
        self.frames_before = host.frames()

    def frames(self) -> FrameCount:
        return self._host.frames() - self.frames_before

    def sample(self) -> None:
        self.longest_pause_ms = max(self.longest_pause_ms, self._hands.longest_pause_ms())
        output = self._host.vertical_output()
        status = self._host.request("GetOutputStatus", outputName=output["outputName"])
        self._receiver.pictures()
        wall = time.monotonic()
        stream = self._receiver.newest()
        self.samples.append({
            "at": round(wall - self._began, 2), "video": stream.video_seconds - (wall - self._began),
            "audio": stream.audio_seconds - (wall - self._began), "active": output["outputActive"],
            "sent": status["outputTotalFrames"], "dropped": status["outputSkippedFrames"],
            "congestion": round(status["outputCongestion"], 3), "bytes": status["outputBytes"],
            "pause_ms": self.longest_pause_ms, **_memory_mb(self._host.pid), **asdict(self.frames())})
        with self._log.open("a") as log:
            print(self.samples[-1], file=log)

    def drift_seconds(self, clock: str) -> float:
        """How far the stream's clock has moved against the wall's from the warm end on."""
        warm = [sample for sample in self.samples if sample["at"] >= min(_WARM_UP_SECONDS, self.samples[-1]["at"] / 2)]
        return warm[-1][clock] - warm[0][clock]

    def growth_mb(self) -> int:
        warm = [sample for sample in self.samples if sample["at"] >= min(_WARM_UP_SECONDS, self.samples[-1]["at"] / 2)]
        return warm[-1]["rss_mb"] - warm[0]["rss_mb"]


def _folder(trial: Trial, url: str) -> HostFolder:
    folder = HostFolder(trial.folder / "host")
    keys = {"rtmpurl": url, "streamkey": KEY, "videobitrate": 1000, "canvaswidth": 216, "canvasheight": 384}
    folder.add_profile(Profile("P", url, "main", width=640, height=360, bitrate_kbps=800, vertical=keys,
                               resilient=trial.policy == RESILIENT))
    make_clip(trial.folder / "clip.mkv")
    folder.add_collection("C", {"Main": [replace(clip_source(trial.folder / "clip.mkv"), x=120.0, y=-80.0)]})
    folder.save_vertical_scenes({"One": "Main"}, "One")
    folder.install_module(built_module(trial.preset))
    return folder


def _hour(trial: Trial) -> Result:
    seconds = trial.options["seconds"]
    with RtmpReceiver(trial.folder / "server") as receiver:
        folder = _folder(trial, receiver.url)
        host = LiveHost(folder, trial.screen, "P", "C")
        with host:
            hands = Hands(host)
            start(host)
            wait_until(lambda: receiver.pictures() and receiver.newest(), 20, "pictures at the server")
            hands.longest_pause_ms()  # what the start took is not of interest here
            watch = _Watch(trial, host, hands, receiver)
            end = time.monotonic() + seconds
            while time.monotonic() < end:
                watch.sample()
                # A fixed time on purpose: it is what is measured.
                time.sleep(max(0.0, min(_SAMPLE_SECONDS, end - time.monotonic())))
            watch.sample()
            frames = watch.frames()
            stop(host)
        receiver.wait_idle()
        arrived, sent = receiver.newest(), watch.samples[-1]
        receiver.pictures()
        last = watch.samples[-1]
        return Result(
            f"{'streams on' if all(sample['active'] for sample in watch.samples) else 'the stream ended'} for "
            f"{seconds / 60:.0f} min: video drifts {watch.drift_seconds('video'):+.2f} s, sound "
            f"{watch.drift_seconds('audio'):+.2f} s, memory {watch.growth_mb():+d} MB, {frames.skipped} main frames "
            f"skipped, {host.leaks()} leaks",
            packets_lost=max(0, sent["sent"] - arrived.pictures), memory_peak_mb=last["peak_mb"],
            main_lagged=frames.lagged, ui_pause_ms=watch.longest_pause_ms, stops=[],
            more={"leaks": host.leaks(), "drawn": frames.rendered, "skipped": frames.skipped,
                  "dropped": last["dropped"], "growth_mb": watch.growth_mb(),
                  "drift_video": round(watch.drift_seconds("video"), 3),
                  "drift_audio": round(watch.drift_seconds("audio"), 3)})


def _steady(result: Result) -> list[str]:
    more = result.more
    wrong = [] if result.seen.startswith("streams on") else ["expected: streams on"]
    if max(abs(more["drift_video"]), abs(more["drift_audio"])) > _MOST_DRIFT_SECONDS:
        wrong.append("the stream's clock drifts")
    if more["growth_mb"] > _MOST_GROWTH_MB:
        wrong.append(f"memory grew by {more['growth_mb']} MB")
    if more["leaks"] != 0:
        wrong.append("the host leaked")
    if result.main_lagged > _MOST_LAGGED_SHARE * more["drawn"]:
        wrong.append(f"{result.main_lagged} of {more['drawn']} frames late")
    if result.ui_pause_ms > _LONGEST_PAUSE_MS:
        wrong.append(f"the UI thread stood still for {result.ui_pause_ms} ms")
    return wrong


ROWS = [
    Row("hour", "an hour on air in the real host",
        "no fault; main and vertical stream at real time; all late frames, whatever they waited for", _hour,
        {RESILIENT: _steady}, seconds=100_000, by_default=False),
]
