# SPDX-License-Identifier: GPL-2.0-or-later
"""A vertical stream on air: the fault, what follows it, the figures."""

import time
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from typing import Protocol

from livehost.servers import RtmpServer
from livehost.waiting import POLL_SECONDS, wait_until

from .figures import cores_busy, growth, late_frames, main_pause_ms, milliseconds
from .promises import broken_promises, told_secrets
from .row import RESILIENT, Result, ended_by
from .stage import KEY, Event, Stage
from .trial import Trial

PICTURES_PER_SECOND = 30
# A stream is back when pictures arrive for so long without a gap: what was on its way comes in a
# burst, and may be all that comes.
_STEADY_SECONDS = 2
_GAP_SECONDS = 0.7
_HANG_MS = 10_000
_STOP_SECONDS = 15

_NOTICES = ("connection lost: ", "entering reconnect mode: ", "avio_open2 failed: ", "avformat_write_header failed: ",
            "video frames dropped: ", "reconnect 1 failed: ", "open_muxer fatal")


class Receiver(Protocol):
    def pictures(self) -> int: ...


class Air:
    """From `on_air`: a stage, told to stream to `receiver` once `start` is called."""

    def __init__(self, trial: Trial, stage: Stage, receiver: Receiver | None, secrets: tuple[str, ...]) -> None:
        self.stage = stage
        self._trial = trial
        self._receiver = receiver
        self._secrets = secrets
        self._injected = self._over = self._stops_since = time.monotonic()
        self._before = stage.figures()
        self._sent: int | None = None  # when the user stopped the stream
        self._recovered: float | None = None
        self._stop_ms: int | None = None

    def start(self, seconds: float = 2) -> None:
        """Goes on air and stays there until so many seconds of pictures have arrived."""
        self.stage.tell("start")
        wait_until(lambda: self._pictures() >= seconds * PICTURES_PER_SECOND, 20 + seconds, "pictures at the server")

    def inject(self, fault: Callable[[], object]) -> None:
        """The fault begins; without a `mend` it has no length."""
        self._before = self.stage.figures()
        self._injected = self._over = self._stops_since = time.monotonic()
        fault()

    def start_into_fault(self) -> None:
        """The fault is there when the stream starts."""
        self.inject(lambda: self.stage.tell("start"))

    def watch(self, seconds: float) -> None:
        """Time passes."""
        self._ended_within(time.monotonic() + seconds)

    def last(self, seconds: float) -> str | None:
        """The fault goes on for so long; words for the end when stream or process ended over it."""
        return self._ended_within(self._injected + seconds)

    def mend(self, action: Callable[[], object] = lambda: None) -> None:
        self._over = time.monotonic()
        action()

    def wait_back(self, seconds: float) -> str:
        """Waits until the stream is back, and tells how that went."""
        count, run, newest = self._pictures(), 0.0, 0.0

        def is_back() -> bool:
            nonlocal count, run, newest
            now = time.monotonic()
            if self._pictures() > count:
                run = now if now - newest > _GAP_SECONDS else run
                count, newest = self._pictures(), now
            return newest - run > _STEADY_SECONDS

        ended = self._ended_within(self._over + seconds, is_back)
        if ended:
            return ended
        if is_back():
            self._recovered = run
            return "comes back"
        if self._notice():
            return "does not come back"
        return "unnoticed: nothing arrives any more and nothing is said of it"

    def behind_seconds(self) -> float:
        """How much of the pictures sent and not dropped the server is still to receive."""
        figures = self.stage.figures()
        return (figures["frames"] - figures["dropped"] - self._pictures()) / PICTURES_PER_SECOND

    def wait_caught_up(self, seconds: float) -> None:
        self._ended_within(self._over + seconds, lambda: self.behind_seconds() < 1)
        if self.behind_seconds() < 1:
            self._recovered = time.monotonic()

    def outcome(self, seconds: float) -> str:
        """Waits for the stream's end, and tells how that went."""
        ended = self._ended_within(self._injected + seconds)
        if ended or not self._notice():
            return ended or "unnoticed: nothing arrives and nothing is said of it"
        states = self.stage.all("status", self._injected)
        told = next((event for event in reversed(states) if event["tip"]), {"status": "nothing", "tip": ""})
        return f"keeps trying; the dock says: {told['status']}, {told['tip']}"

    @staticmethod
    def now() -> float:
        return time.monotonic()

    def wait_pictures(self, count: int, seconds: float) -> str | None:
        """Waits until so many more have arrived; words for what happened instead."""
        self._stops_since = time.monotonic()
        goal = self._pictures() + count
        ended = self._ended_within(time.monotonic() + seconds, lambda: self._pictures() >= goal)
        return ended or (None if self._pictures() >= goal else "the pictures stay away")

    def finish(self, seen: str, one_stop: bool = True, main_runs: bool = True) -> Result:
        """The user stops the stream and ends the host; the figures of all since the fault. Without
        `one_stop` there was more than one stream, without `main_runs` the main stream ended, too."""
        if self.stage.alive and not self._hangs():
            seen += self._stop()
        # The module's tear-down lets libobs say "stop" once more, with nobody listening.
        stops = self.stage.all("stop")
        leaks = self._end_stage()
        figures = self.stage.all("figures", self._injected)
        earlier = [event for event in self.stage.all("figures", self._injected - 2) if event["at"] < self._injected]
        last = figures[-1]["figures"] if figures else self._before
        memory_kb = max((event["figures"]["rss_kb"] for event in figures), default=self._before["rss_kb"])
        if last["peak_kb"] > self._before["peak_kb"]:
            memory_kb = last["peak_kb"]  # it was before the fault that the process had its peak otherwise
        sent = last.get("frames", 0) if self._sent is None else self._sent
        late, late_waiting = late_frames([self._before, *(event["figures"] for event in figures)])
        notice = self._notice()
        result = Result(
            seen,
            notice_ms=milliseconds(notice["at"] - self._injected) if notice else None,
            recover_ms=milliseconds(self._recovered - self._over) if self._recovered else None,
            packets_lost=max(0, sent - self._pictures()) if self._receiver else None,
            memory_peak_mb=memory_kb // 1024,
            main_lagged=late,
            ui_pause_ms=max((event["figures"]["ui_pause_ms"] for event in figures), default=0),
            stops=[event["stop"] for event in stops],
            message=next((event["message"] for event in reversed(stops) if event["message"]), ""),
            more={"frames": sent, "main_pause_ms": main_pause_ms(figures) if main_runs else 0,
                  "stop_ms": self._stop_ms, "leaks": leaks, "main_drawn": growth(self._before, last, "rendered"),
                  "late_waiting": late_waiting, "cpu_cores": [cores_busy(earlier), cores_busy(figures)],
                  "memory_growth_kb": memory_kb - self._before["rss_kb"],
                  "dropped": last.get("dropped", 0), "boxes": [event["box"] for event in self.stage.all("box")],
                  "states": [f"{event['status']}: {event['tip']}" if event["tip"] else event["status"]
                             for event in self.stage.all("status", self._injected)]})
        if self._trial.policy == RESILIENT:
            result.faults = list(broken_promises(result, one_stop))
            result.faults += told_secrets(self.stage, self._secrets)
        return result

    def _stop(self) -> str:
        self.stage.find(lambda event: "figures" in event, time.monotonic(), 1)
        self._sent = self.stage.figures().get("frames", 0)
        stopped_before = self._stop_event(self._stops_since)
        begin = time.monotonic()
        self.stage.tell("stop")
        # An output that has ended already says nothing more.
        done = self.stage.find(lambda event: event.get("done") == "stop", begin, _STOP_SECONDS)
        if not done:
            return "; stopping it hangs the UI thread" if self.stage.alive else f"; at the stop {self._end_words()}"
        if not stopped_before:
            event = self.stage.find(lambda event: "stop" in event, begin, _STOP_SECONDS)
            if not event:
                return "; it does not stop"
            self._stop_ms = milliseconds(event["at"] - begin)
        # What is under way arrives, and the figures count the last packet.
        self.stage.find(lambda event: "figures" in event, time.monotonic() + 0.3, 2)
        self._settle()
        return ""

    def _settle(self) -> None:
        before = -1
        while self._pictures() != before:
            before = self._pictures()
            self.stage.find(lambda event: "figures" in event, time.monotonic() + 0.3, 1)

    def _end_stage(self) -> int | None:
        """How many allocations the host leaked; none when its end did not come so far."""
        if not self._hangs() and self.stage.end(20) == 0:
            return self.stage.all("leaks")[-1]["leaks"]
        return None

    def _pictures(self) -> int:
        return self._receiver.pictures() if self._receiver else 0

    def _ended_within(self, until: float, done: Callable[[], bool] = lambda: False) -> str | None:
        """Words for the stream's, the UI thread's or the process's end before that time."""
        while time.monotonic() < until and not done():
            if not self.stage.alive:
                return self._end_words()
            if self._hangs():
                return "hangs: the UI thread stands still"
            stop = self._stop_event(self._stops_since)
            if stop:
                return f"stopped: {stop['message']}"
            time.sleep(POLL_SECONDS)
        return None

    def _end_words(self) -> str:
        return ended_by(self.stage.end_code())

    def _stop_event(self, since: float) -> Event | None:
        """The end of the last "stop" so far; the standard type says it twice, first without an error."""
        stops = self.stage.all("stop", since)
        return stops[-1] if stops else None

    def _hangs(self) -> bool:
        return self.stage.figures().get("ui_pause_ms", 0) > _HANG_MS

    def _notice(self) -> Event | None:
        def tells(event: Event) -> bool:
            return event.get("stop", 0) != 0 or any(notice in event.get("log", "") for notice in _NOTICES)
        return self.stage.find(tells, self._injected)


@contextmanager
def on_air(trial: Trial, url: str, receiver: Receiver | None, key: str = KEY, secrets: tuple[str, ...] = (KEY,),
           **settings: object) -> Iterator[Air]:
    """A stage that will stream to the URL, with a main stream on a server of its own."""
    with RtmpServer(trial.folder / "main") as main:
        yield Air(trial, Stage(trial, main.url, url, key, **settings), receiver, secrets)
