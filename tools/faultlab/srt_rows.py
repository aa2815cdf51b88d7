# SPDX-License-Identifier: GPL-2.0-or-later
"""Faults of an SRT connection, and SRT servers that do not let the stream begin."""

import socket
from collections.abc import Callable

from livehost.sockets import free_port

from .air import on_air
from .proxies import UdpProxy
from .receivers import SrtReceiver
from .refusal_rows import STOPPED
from .row import RESILIENT, STANDARD, Result, Row, expect
from .trial import Trial

# The standard type ends the process at the first write that fails.
_ABORTS = {STANDARD: expect("process ended: SIGABRT"), RESILIENT: expect("comes back", stops=[0])}
_PASSPHRASE = "rightpassphrase"
_WRONG_PASSPHRASE = "wrongpassphrase"
# On a line without delay SRT would resend everything in time.
_ONE_WAY_SECONDS = 0.02


def _goes_away(how: Callable[[SrtReceiver], None]) -> Callable[[Trial], Result]:
    def play(trial: Trial) -> Result:
        with SrtReceiver(trial.folder / "server") as server, on_air(trial, server.url, server) as air:
            air.start()
            air.inject(lambda: how(server))
            ended = air.last(10)
            air.mend(server.start)
            return air.finish(ended or air.wait_back(20))
    return play


def _down(trial: Trial) -> Result:
    with SrtReceiver(trial.folder / "server") as server, UdpProxy(server.port) as proxy, \
            on_air(trial, f"srt://127.0.0.1:{proxy.port}", server) as air:
        air.start()
        air.inject(proxy.cut)
        ended = air.last(20)
        air.mend(proxy.mend)
        return air.finish(ended or air.wait_back(20))


def _lossy(loss: float) -> Callable[[Trial], Result]:
    def play(trial: Trial) -> Result:
        with SrtReceiver(trial.folder / "server") as server, UdpProxy(server.port) as proxy, \
                on_air(trial, f"srt://127.0.0.1:{proxy.port}", server) as air:
            proxy.delay_seconds = _ONE_WAY_SECONDS
            air.start()

            def lose() -> None:
                proxy.loss = loss
            air.inject(lose)
            ended = air.last(20)
            result = air.finish(ended or "streams on")
            if not ended:
                sent = result.more["frames"]
                result.seen += f": {sent - result.packets_lost} of {sent} pictures arrive"
            return result
    return play


def _wrong_passphrase(trial: Trial) -> Result:
    with SrtReceiver(trial.folder / "server", f"&passphrase={_PASSPHRASE}&pbkeylen=16") as server, \
            on_air(trial, f"{server.url}?passphrase={_WRONG_PASSPHRASE}&pbkeylen=16", server,
                   secrets=(_WRONG_PASSPHRASE,)) as air:
        air.start_into_fault()
        return air.finish(air.outcome(20))


def _no_listener(trial: Trial) -> Result:
    with on_air(trial, f"srt://127.0.0.1:{free_port(socket.SOCK_DGRAM)}", None) as air:
        air.start_into_fault()
        return air.finish(air.outcome(20))


def _streams_on(least_share: float) -> Callable[[Result], list[str]]:
    def check(result: Result) -> list[str]:
        if not result.seen.startswith("streams on"):
            return ["expected: streams on"]
        share = 1 - result.packets_lost / result.more["frames"]
        return [] if share >= least_share else [f"expected: at least {least_share:.0%} of the pictures arrive"]
    return check


ROWS = [
    Row("srt-killed", "SRT listener killed, back after 10 s",
        "SIGKILL to srt-live-transmit, started again on the same port", _goes_away(SrtReceiver.kill), _ABORTS,
        seconds=90),
    Row("srt-closes", "SRT clean close, listener back after 10 s", "SIGTERM to srt-live-transmit, started again",
        _goes_away(SrtReceiver.stop), _ABORTS, seconds=90),
    Row("srt-down", "SRT link down for 20 s", "the proxy drops every datagram", _down, _ABORTS, seconds=110),
    Row("srt-loss-5", "SRT 5 % loss",
        "the proxy drops 5 % of the datagrams each way, for 20 s, and delays all by 20 ms", _lossy(0.05),
        {STANDARD: _streams_on(0.97), RESILIENT: _streams_on(0.97)}, seconds=90),
    Row("srt-loss-30", "SRT 30 % loss", "the same with 30 %",
        _lossy(0.3), {STANDARD: _streams_on(0.5), RESILIENT: _streams_on(0.5)}, seconds=90),
    Row("srt-passphrase", "SRT wrong passphrase", "listener and stream have different ones", _wrong_passphrase,
        STOPPED),
    Row("srt-none", "no SRT listener", "nobody has the UDP port", _no_listener, STOPPED),
]
