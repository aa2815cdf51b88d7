# SPDX-License-Identifier: GPL-2.0-or-later
"""Faults of an RTMP connection that stood."""

from collections.abc import Callable, Iterator
from contextlib import contextmanager

from .air import Air, on_air
from .proxies import TcpProxy
from .receivers import RtmpReceiver
from .row import RESILIENT, STANDARD, Result, Row, expect
from .trial import Trial

_UNNOTICED = expect("unnoticed", stops=[0])
_BACK = expect("comes back", stops=[0])


@contextmanager
def _rtmp(trial: Trial) -> Iterator[tuple[Air, TcpProxy, RtmpReceiver]]:
    with RtmpReceiver(trial.folder / "server") as server, TcpProxy(server.port) as proxy, \
            on_air(trial, f"rtmp://127.0.0.1:{proxy.port}/live", server) as air:
        air.start()
        yield air, proxy, server


def _at_once(fault: Callable[[TcpProxy], None]) -> Callable[[Trial], Result]:
    """A fault without a length."""
    def play(trial: Trial) -> Result:
        with _rtmp(trial) as (air, proxy, _):
            air.inject(lambda: fault(proxy))
            return air.finish(air.wait_back(12))
    return play


def _for_seconds(fault: Callable[[TcpProxy], None], seconds: float) -> Callable[[Trial], Result]:
    def play(trial: Trial) -> Result:
        with _rtmp(trial) as (air, proxy, _):
            air.inject(lambda: fault(proxy))
            air.last(seconds)
            air.mend(proxy.mend)
            return air.finish(air.wait_back(20))
    return play


ROWS = [
    Row("closes", "the server closes the connection", "the proxy ends it in order", _at_once(TcpProxy.close),
        {STANDARD: _UNNOTICED, RESILIENT: _BACK}),
    Row("stalls", "the server reads no more for 30 s", "the proxy stops reading: the TCP window closes",
        _for_seconds(TcpProxy.stall, 30), {STANDARD: _BACK, RESILIENT: _BACK}, seconds=120),
]
