# SPDX-License-Identifier: GPL-2.0-or-later
"""Servers and networks that do not let the stream begin."""

from livehost.sockets import free_port

from .air import on_air
from .row import RESILIENT, STANDARD, Result, Row, expect
from .trial import Trial

REJECTED = "Stream rejected — check server URL and stream key"
# The standard type says its end twice, the second time with the error.
_STANDARD = expect("stopped: ", stops=[0, -4], message=REJECTED)
_RESILIENT = expect("stopped: ", stops=[-4])


def _refused(trial: Trial) -> Result:
    with on_air(trial, f"rtmp://127.0.0.1:{free_port()}/live", None) as air:
        air.start_into_fault()
        return air.finish(air.outcome(20))


ROWS = [
    Row("refused", "the connection is refused", "nobody listens on the port", _refused,
        {STANDARD: _STANDARD, RESILIENT: _RESILIENT}),
]
