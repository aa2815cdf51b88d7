# SPDX-License-Identifier: GPL-2.0-or-later
"""The demo's table: a column for each received stream."""

from collections.abc import Callable, Iterator
from dataclasses import dataclass

from .host import FrameCount
from .received import Received

PROFILES = {"Constrained Baseline": "Baseline"}


@dataclass(frozen=True)
class Column:
    """A received stream and the host's run that it came from."""

    title: str
    stream: Received
    frames: FrameCount
    leaks: int | None


def _codec(stream: Received) -> str:
    facts = stream.video.facts
    codec = {"h264": "H.264"}.get(facts["codec_name"], facts["codec_name"])
    return f"{codec} {PROFILES.get(facts['profile'], facts['profile'])}"


def _audio(stream: Received) -> str:
    kinds = {f"{track.facts['codec_name'].upper()} {track.facts['channel_layout']} {track.facts['sample_rate']}"
             for track in stream.audios}
    return f"{len(stream.audios)} x {' / '.join(sorted(kinds))}"


def _share(part: int, whole: int) -> str:
    return f"{part} of {whole} ({100 * part / max(whole, 1):.1f} %)"


_ROWS: list[tuple[str, Callable[[Column], str]]] = [
    ("video", lambda c: _codec(c.stream)),
    ("size", lambda c: f"{c.stream.video.facts['width']}x{c.stream.video.facts['height']}"),
    ("frames per second", lambda c: f"{c.stream.video.packets_per_second:.3f}"),
    ("video bitrate, kbps", lambda c: f"{c.stream.video.bitrate_kbps:.0f}"),
    ("audio", lambda c: _audio(c.stream)),
    ("video begins, s", lambda c: f"{c.stream.video.first_seconds:.3f}"),
    ("video lasts, s", lambda c: f"{c.stream.video.seconds:.3f}"),
]
_HOST_ROWS: list[tuple[str, Callable[[Column], str]]] = [
    ("host frames lagged", lambda c: _share(c.frames.lagged, c.frames.rendered)),
    ("main frames skipped", lambda c: _share(c.frames.skipped, c.frames.encoded)),
    ("host leaks", lambda c: "unknown" if c.leaks is None else str(c.leaks)),
]


def _audio_cell(column: Column, index: int) -> str:
    if index >= len(column.stream.audios):
        return "-"
    track = column.stream.audios[index]
    return f"{track.first_seconds:.3f} / {track.seconds:.3f}"


def table(columns: list[Column]) -> str:
    """The columns side by side; streams without video are left out, the verdict tells of them."""
    shown = [column for column in columns if column.stream.videos]
    tracks = max((len(column.stream.audios) for column in shown), default=0)

    def rows() -> Iterator[list[str]]:
        yield ["", *(column.title for column in shown)]
        for label, cell in _ROWS:
            yield [label, *map(cell, shown)]
        for index in range(tracks):
            yield [f"audio {index + 1} begins / lasts", *(_audio_cell(column, index) for column in shown)]
        for label, cell in _HOST_ROWS:
            yield [label, *map(cell, shown)]

    lines = list(rows())
    widths = [max(map(len, cells)) for cells in zip(*lines)]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip() for line in lines)
