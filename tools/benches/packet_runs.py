# SPDX-License-Identifier: GPL-2.0-or-later
"""One run of packets through one output: server, sink and packet_bench together."""

import socket
import subprocess
from collections.abc import Iterator, Mapping, Sequence
from contextlib import ExitStack, contextmanager
from dataclasses import dataclass
from pathlib import Path
from types import MappingProxyType
from typing import Any, Self

from livehost.servers import RtmpServer
from livehost.sockets import free_port, udp_bound
from livehost.waiting import end_child, wait_until

from .recorded import recording
from .setting import Setting


@dataclass(frozen=True)
class Candidate:
    """An output and what it sends to: "rtmp", "srt", or "drain", a sink that nothing follows."""

    label: str
    target: str
    to: str


OURS_RTMP = Candidate("ours, RTMP", "standard", "rtmp")
HOST_RTMP = Candidate("host's own, RTMP", "host-rtmp", "rtmp")
OURS_SRT = Candidate("ours, SRT", "standard", "srt")
HOST_SRT = Candidate("host's own, SRT", "host-srt", "srt")
RESILIENT_RTMP = Candidate("ours, resilient, RTMP", "resilient", "rtmp")
RESILIENT_SRT = Candidate("ours, resilient, SRT", "resilient", "srt")
FLOOR = Candidate("floor: a copy, a sendmsg", "floor", "drain")
ALL = (OURS_RTMP, HOST_RTMP, OURS_SRT, HOST_SRT, FLOOR, RESILIENT_RTMP, RESILIENT_SRT)

# Muxers keep the last packets until they know what comes before them, and MPEG-TS gathers several
# frames of a track in one unit.
_HELD_OF_A_TRACK, _HELD_PICTURES = 8, 10

BY_LABEL = {candidate.label: candidate for candidate in ALL}


@contextmanager
def _srt_listener(folder: Path) -> Iterator[int]:
    """Takes one SRT call; what it brings is thrown away."""
    port = free_port(socket.SOCK_DGRAM)
    with (folder / "srt.log").open("ab") as log:
        process = subprocess.Popen(["srt-live-transmit", "-q", f"srt://127.0.0.1:{port}?mode=listener", "file://con"],
                                   stdout=subprocess.DEVNULL, stderr=log)
    try:
        wait_until(lambda: udp_bound(port), 20, "SRT listener ready")
        yield port
    finally:
        end_child(process)


class PacketRuns:
    """Keeps the RTMP server; everything else is new for each run."""

    def __init__(self, setting: Setting) -> None:
        self._setting = setting
        self._recording = recording(setting.build)
        self._rtmp = RtmpServer(setting.root / "rtmp", record="off")

    def __enter__(self) -> Self:
        self._rtmp.start()
        return self

    def __exit__(self, *_: object) -> None:
        self._rtmp.stop()

    @contextmanager
    def _road(self, to: str, board: Path) -> Iterator[str]:
        """A sink, before the server where there is one; the address that leads to it."""
        srt = to == "srt"
        with ExitStack() as stack:
            server = 0
            if to != "drain":
                server = stack.enter_context(_srt_listener(self._setting.root)) if srt else self._rtmp.port
            port = free_port(socket.SOCK_DGRAM if srt else socket.SOCK_STREAM)
            sink = stack.enter_context(subprocess.Popen(
                [str(self._setting.build / "bench" / "bench_sink"), "srt" if srt else "rtmp", str(port), str(server),
                 str(board)], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True))
            stack.callback(sink.stdin.close)
            if sink.stdout.readline() != "ready\n":
                raise RuntimeError("the sink did not start")
            yield f"srt://127.0.0.1:{port}" if srt else f"rtmp://127.0.0.1:{port}/live"

    def run(self, candidate: Candidate, under: Sequence[str] = (), variables: Mapping[str, str] = MappingProxyType({}),
            **options: object) -> dict[str, Any]:
        """The run's figures. Options are packet_bench's own (`warm_up=1` is `--warm-up 1`, `marks=True`
        is `--marks`), `under` and `variables` those of Setting.run_program."""
        board = self._setting.root / "board"
        board.unlink(missing_ok=True)
        words = ["--recording", self._recording, "--board", board]
        for name, value in options.items():
            words += [f"--{name.replace('_', '-')}", *([] if value is True else [value])]
        with self._road(candidate.to, board) as url:
            figures = self._setting.run_program("packet_bench", candidate.target, url, "bench", *words, under=under,
                                                **variables)
        _check(candidate, figures, int(options.get("tracks", 6)))
        return figures


def _check(candidate: Candidate, figures: Mapping[str, Any], tracks: int) -> None:
    """Only what a muxer still holds at the end may be missing at the sink."""
    if figures["writer_cpu_us"] <= 0:
        raise RuntimeError(f"{candidate.label}: no thread of its own was seen at work")
    missing = figures["packets"] - figures["arrived"]
    held = _HELD_OF_A_TRACK * tracks + _HELD_PICTURES
    if figures["packets"] == 0 or figures["frames_dropped"] or missing > held:
        raise RuntimeError(f"{candidate.label}: {figures['frames_dropped']} frames dropped, "
                           f"{missing} of {figures['packets']} packets not seen at the sink")
