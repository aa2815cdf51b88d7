# SPDX-License-Identifier: GPL-2.0-or-later
"""Servers and networks that do not let an RTMP stream begin."""

import subprocess
from collections.abc import Callable
from contextlib import AbstractContextManager, nullcontext

from livehost.sockets import free_port, tcp_clients
from livehost.waiting import end_child, wait_until

from .air import on_air
from .proxies import black_hole, silent_server
from .receivers import RtmpReceiver
from .row import RESILIENT, STANDARD, Result, Row, expect
from .stage import KEY
from .trial import Trial

REJECTED = "Stream rejected — check server URL and stream key"
# The standard type says its end twice, the second time with the error.
STOPPED_STANDARD = expect("stopped: ", stops=[0, -4], message=REJECTED)
STOPPED_RESILIENT = expect("stopped: ", stops=[-4])
STOPPED = {STANDARD: STOPPED_STANDARD, RESILIENT: STOPPED_RESILIENT}


def _at_port(server: Callable[[], AbstractContextManager[int]]) -> Callable[[Trial], Result]:
    """A server that is no more than a port."""
    def play(trial: Trial) -> Result:
        with server() as port, on_air(trial, f"rtmp://127.0.0.1:{port}/live", None) as air:
            air.start_into_fault()
            return air.finish(air.outcome(20))
    return play


def _unknown_host(trial: Trial) -> Result:
    with on_air(trial, "rtmp://nowhere.invalid/live", None) as air:
        air.start_into_fault()
        return air.finish(air.outcome(20))


def _by_nginx(path: str = "live", application: str = "") -> Callable[[Trial], Result]:
    def play(trial: Trial) -> Result:
        with RtmpReceiver(trial.folder / "server", application) as server, \
                on_air(trial, f"rtmp://127.0.0.1:{server.port}/{path}", server) as air:
            air.start_into_fault()
            return air.finish(air.outcome(12))
    return play


def _duplicate(trial: Trial) -> Result:
    with RtmpReceiver(trial.folder / "server") as server:
        other = subprocess.Popen(
            ["ffmpeg", "-v", "error", "-nostdin", "-re", "-f", "lavfi", "-i", "testsrc2=s=64x64:r=10",
             "-c:v", "libx264", "-preset", "ultrafast", "-f", "flv", f"{server.url}/{KEY}"])
        try:
            wait_until(lambda: tcp_clients(server.port) and server.pictures() > 0, 20, "the other stream")
            with on_air(trial, server.url, None) as air:
                air.start_into_fault()
                return air.finish(air.outcome(12))
        finally:
            end_child(other)


def _hangs(result: Result) -> list[str]:
    """Connecting has no deadline, and who waits for it waits for ever."""
    return [] if "hangs" in result.seen else ["expected: hangs"]


def _keeps_trying(result: Result) -> list[str]:
    """nginx takes the connection and all headers before it closes: it looks like a line that is lost."""
    told = result.seen.startswith("keeps trying") and "check server URL and stream key" in result.seen
    return [] if told else ["expected: keeps trying, and says what to check"]


ROWS = [
    Row("silent", "server accepts and never answers the handshake", "a listening socket that nobody reads from",
        _at_port(silent_server), {STANDARD: _hangs, RESILIENT: STOPPED_RESILIENT}, seconds=90),
    Row("blackhole", "black-holed connect",
        "a listening socket whose queue is full: packets of new connections are lost",
        _at_port(black_hole), STOPPED, seconds=90),
    Row("refused", "connection refused", "nobody listens on the port", _at_port(lambda: nullcontext(free_port())),
        STOPPED),
    Row("unknown-host", "unknown host", "a name under .invalid; there is no name server, so it fails at once",
        _unknown_host, STOPPED),
    Row("unknown-app", "unknown application", "an application that nginx does not have", _by_nginx("other"), STOPPED),
    Row("denied", "publish denied", "nginx with \"deny publish all\"", _by_nginx(application="deny publish all;"),
        {STANDARD: expect("unnoticed"), RESILIENT: _keeps_trying}),
    Row("duplicate", "duplicate key", "another stream with the same key is on air", _duplicate, STOPPED),
]
