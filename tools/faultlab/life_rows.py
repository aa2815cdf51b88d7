# SPDX-License-Identifier: GPL-2.0-or-later
"""What the user does to the host while a stream is on air, or between two."""

from .air import Air, on_air
from .receivers import RtmpReceiver
from .row import RESILIENT, STANDARD, Result, Row, expect
from .stage import Event
from .trial import Trial

SWITCHES = 200
_SIZES = ("640 360 30", "320 180 60", "320 180 30")


def _on_air_since(air: Air, since: float) -> bool:
    def begins(event: Event) -> bool:
        return "first TS keyframe written" in event.get("log", "")
    return air.stage.find(begins, since, 20) is not None


def _profiles(trial: Trial) -> Result:
    """Each stream ends with its profile; the next one is started in the new profile."""
    with RtmpReceiver(trial.folder / "server") as server, on_air(trial, server.url, server) as air:
        folders = [trial.folder / "profiles/first", air.stage.add_profile("second", server.url, "secretkey2")]
        air.inject(lambda: None)
        for number in range(SWITCHES):
            started = air.now()
            if not air.stage.done("start", 20) or not _on_air_since(air, started):
                return air.finish(f"breaks off: no stream after {number} switches", one_stop=False)
            if not air.stage.done(f"profile {folders[(number + 1) % 2]}", 20):
                return air.finish(f"hangs at switch {number + 1}", one_stop=False)
        if not air.stage.done("start", 20):
            return air.finish("does not start after the last switch", one_stop=False)
        return air.finish(air.wait_pictures(60, 20) or "comes back", one_stop=False)


def _video_reset(trial: Trial) -> Result:
    with RtmpReceiver(trial.folder / "server") as server, on_air(trial, server.url, server) as air:
        air.start()
        air.inject(lambda: None)
        for size in _SIZES:
            for command in ("stop", f"video {size}", "start"):
                if not air.stage.done(command, 20):
                    return air.finish(f"hangs at {command}", one_stop=False)
            seen = air.wait_pictures(60, 20)
            if seen:
                return air.finish(f"after {size}: {seen}", one_stop=False)
        return air.finish("comes back", one_stop=False)


ROWS = [
    Row("profiles", f"profile switched {SWITCHES} times while live",
        "the host's own event, to and fro between two profiles", _profiles,
        {STANDARD: expect("comes back"), RESILIENT: expect("comes back")}, seconds=580),
    Row("video-reset", "host video reset between streams", "size and frame rate of the host change three times",
        _video_reset, {STANDARD: expect("comes back"), RESILIENT: expect("comes back")}, seconds=120),
]
