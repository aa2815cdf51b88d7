# SPDX-License-Identifier: GPL-2.0-or-later
"""The host as a process of its own: real libobs with the module, told what to do and watched."""

import json
import subprocess
import threading
import time
from collections.abc import Callable
from pathlib import Path
from typing import Any

import numpy as np
from PIL import Image

from livehost.folder import MODULE, write_ini
from livehost.waiting import DeadlineError

from .row import RESILIENT
from .trial import Trial

TAG = "[corvane-obs-vertical] "
KEY = "secretkey"
BITRATE_KBPS = 1500

Event = dict[str, Any]


class Stage:
    """Every event has the time "at", of the clock that `time.monotonic` reads."""

    def __init__(self, trial: Trial, main_url: str, url: str, key: str = KEY, **settings: object) -> None:
        self._trial = trial
        self._events: list[Event] = []
        self._news = threading.Condition()  # guards _events and _ended
        self._ended = False
        config = trial.folder / "config"
        write_ini(config / MODULE / "settings-global.ini", {
            "VerticalCanvas": {"dockvisible": False},
            "Scenes": {"count": 1, "activescene": "Scene 1", "scene_0_name": "Scene 1", "scene_0_source": "Stage"}})
        first = self.add_profile("first", url, key, **settings)
        picture = trial.folder / "picture.png"
        _noise(picture)
        # The pictures are drawn by the graphics thread itself, so that what it waits for can be told.
        self._process = trial.start_program("fault_stage", str(config), str(first), str(picture), main_url,
                                            LP_NUM_THREADS="0")
        threading.Thread(target=self._read, daemon=True).start()
        self.wait(lambda event: "figures" in event, 30, "stage ready")

    def add_profile(self, name: str, url: str, key: str = KEY, **settings: object) -> Path:
        """A profile of a small canvas that streams to the URL; `settings` replaces keys of the module."""
        folder = self._trial.folder / "profiles" / name
        keys = {"rtmpurl": url, "streamkey": key, "videobitrate": BITRATE_KBPS, "canvaswidth": 180,
                "canvasheight": 320, "encoderpreset": "ultrafast"} | settings
        write_ini(folder / f"{MODULE}.ini", {
            "VerticalCanvas": keys, "Resilience": {"enabled": self._trial.policy == RESILIENT}})
        return folder

    def tell(self, command: str) -> None:
        """A command of the stage; see its program. It is performed on the UI thread."""
        try:
            self._process.stdin.write(command + "\n")
        except (BrokenPipeError, ValueError):
            pass  # the process has ended, which the events tell

    def done(self, command: str, seconds: float) -> bool:
        """Tells the command and waits until it has been performed; false when that takes too long."""
        since = time.monotonic()
        self.tell(command)
        return self.find(lambda event: event.get("done") == command, since, seconds) is not None

    def find(self, wanted: Callable[[Event], bool], since: float = 0, seconds: float = 0) -> Event | None:
        """The first such event from that time on; waits for it, but not beyond the process's end."""
        deadline = time.monotonic() + seconds
        with self._news:
            seen = 0
            while True:
                for event in self._events[seen:]:
                    if event["at"] >= since and wanted(event):
                        return event
                seen = len(self._events)
                left = deadline - time.monotonic()
                if self._ended or left <= 0:
                    return None
                self._news.wait(left)

    def wait(self, wanted: Callable[[Event], bool], seconds: float, what: str, since: float = 0) -> Event:
        event = self.find(wanted, since, seconds)
        if event is None:
            how = f"the stage ended with {self.end_code()}" if self._ended else f"not within {seconds:g} s"
            raise DeadlineError(f"{what}: {how}")
        return event

    def all(self, name: str, since: float = 0) -> list[Event]:
        """The events so far that have such a field."""
        with self._news:
            return [event for event in self._events if name in event and event["at"] >= since]

    def lines(self, since: float = 0) -> list[str]:
        """The module's own log lines, without their tag."""
        return [event["log"].removeprefix(TAG) for event in self.all("log", since) if event["log"].startswith(TAG)]

    def figures(self) -> Event:
        """The newest figures."""
        found = self.all("figures")
        return found[-1]["figures"] if found else {}

    @property
    def alive(self) -> bool:
        return self._process.poll() is None

    def end_code(self) -> int:
        """Waits for the process's end and returns its status; negative is a signal's number."""
        return self._process.wait()

    def end(self, seconds: float) -> int | None:
        """Ends the stage as the user does, and returns its status; none when it does not end in time."""
        self.tell("end")
        try:
            return self._process.wait(seconds)
        except subprocess.TimeoutExpired:
            return None

    def _read(self) -> None:
        with (self._trial.folder / "events.jsonl").open("w") as kept:
            for line in self._process.stdout:
                kept.write(line)
                try:
                    event = json.loads(line)
                except ValueError:
                    continue  # the last line of a process that was killed
                with self._news:
                    self._events.append(event)
                    self._news.notify_all()
        with self._news:
            self._ended = True
            self._news.notify_all()


def _noise(path: Path) -> None:
    """A picture larger than the canvas that no encoder makes small."""
    pixels = np.random.default_rng(1).integers(0, 256, (75, 120, 3), np.uint8)
    Image.fromarray(pixels).resize((480, 300)).save(path)
