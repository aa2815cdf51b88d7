# SPDX-License-Identifier: GPL-2.0-or-later
"""Faults of an RTMP connection that stood."""

from collections.abc import Callable, Iterator
from contextlib import contextmanager

from .air import Air, on_air
from .proxies import TcpProxy
from .receivers import RtmpReceiver
from .row import RESILIENT, STANDARD, Result, Row, expect
from .trial import Trial

_SLOW_SHARE = 0.6
_UNNOTICED = expect("unnoticed", stops=[0])
_BACK = expect("comes back", stops=[0])


@contextmanager
def _rtmp(trial: Trial) -> Iterator[tuple[Air, TcpProxy]]:
    with RtmpReceiver(trial.folder / "server") as server, TcpProxy(server.port) as proxy, \
            on_air(trial, f"rtmp://127.0.0.1:{proxy.port}/live", server) as air:
        air.start()
        yield air, proxy


def _at_once(fault: Callable[[TcpProxy], None]) -> Callable[[Trial], Result]:
    """A fault without a length."""
    def play(trial: Trial) -> Result:
        with _rtmp(trial) as (air, proxy):
            air.inject(lambda: fault(proxy))
            return air.finish(air.wait_back(12))
    return play


def _for_seconds(fault: Callable[[TcpProxy], None], seconds: float) -> Callable[[Trial], Result]:
    def play(trial: Trial) -> Result:
        with _rtmp(trial) as (air, proxy):
            air.inject(lambda: fault(proxy))
            ended = air.last(seconds)
            air.mend(proxy.mend)
            return air.finish(ended or air.wait_back(20))
    return play


def _killed(trial: Trial) -> Result:
    with RtmpReceiver(trial.folder / "server") as server, on_air(trial, server.url, server) as air:
        air.start()
        air.inject(server.kill)
        ended = air.last(10)
        air.mend(server.start)
        return air.finish(ended or air.wait_back(20))


def _slow(trial: Trial) -> Result:
    with _rtmp(trial) as (air, proxy):
        passed = proxy.passed_bytes
        air.watch(5)
        rate = (proxy.passed_bytes - passed) / 5
        air.inject(lambda: proxy.throttle(_SLOW_SHARE * rate))
        ended = air.last(60)
        if ended:
            return air.finish(ended)
        behind = air.behind_seconds()
        air.mend(proxy.mend)
        air.wait_caught_up(30)
        result = air.finish(f"streams on, {behind:.0f} s behind at the end of it")
        result.more["behind_seconds"] = behind
        return result


def _far_behind(result: Result) -> list[str]:
    """The queue has no limit: of 60 s at 60 % of the rate 24 s are still to be sent in the end."""
    behind = result.more.get("behind_seconds", 0)
    return [] if behind > 15 and not result.more["dropped"] else ["expected: everything kept, about 24 s behind"]


def _drops(result: Result) -> list[str]:
    """5 s in the buffer, and what the two kernels hold."""
    behind = result.more.get("behind_seconds", 99)
    return [] if behind < 8 and result.more["dropped"] > 0 else ["expected: dropped frames, less than 8 s behind"]


ROWS = [
    Row("closes", "server closes", "the proxy ends the connection in order", _at_once(TcpProxy.close),
        {STANDARD: _UNNOTICED, RESILIENT: _BACK}),
    Row("resets", "server resets", "the proxy closes with SO_LINGER 0: TCP reset", _at_once(TcpProxy.reset),
        {STANDARD: _UNNOTICED, RESILIENT: _BACK}),
    Row("killed", "server is killed and comes back after 10 s", "SIGKILL to nginx, started again on the same port",
        _killed, {STANDARD: _UNNOTICED, RESILIENT: _BACK}, seconds=90),
    Row("stalls", "server stalls for 30 s", "the proxy stops reading: the TCP window closes",
        _for_seconds(TcpProxy.stall, 30), {STANDARD: _BACK, RESILIENT: _BACK}, seconds=120),
    Row("down", "link down for 20 s", "the proxy hands on nothing, either way, and answers no new connection",
        _for_seconds(TcpProxy.cut, 20), {STANDARD: _BACK, RESILIENT: _BACK}, seconds=110),
    Row("slow", "slow link for 60 s", "the proxy passes 60 % of the bytes per second that came before", _slow,
        {STANDARD: _far_behind, RESILIENT: _drops}, seconds=180),
]
