# SPDX-License-Identifier: GPL-2.0-or-later
"""The demo's table: a column for each received stream."""

from collections.abc import Mapping, Sequence

from .host import FrameCount
from .received import Received


def _share(part: int, whole: int) -> str:
    return f"{part} of {whole} ({100 * part / max(whole, 1):.1f} %)"


def column(title: str, stream: Received, frames: FrameCount, leaks: int | None) -> dict[str, str]:
    """A stream with a video track, and the host's run that it came from."""
    video, audios = stream.video, stream.audios
    kinds = {" ".join(track.facts[key] for key in ("codec_name", "channel_layout", "sample_rate")) for track in audios}
    return {
        "": title,
        "video": f"{video.facts['codec_name']} {video.facts['profile']}",
        "size": f"{video.facts['width']}x{video.facts['height']}",
        "frames per second": f"{video.packets_per_second:.3f}",
        "video bitrate, kbps": f"{video.bitrate_kbps:.0f}",
        "audio": f"{len(audios)} x {' / '.join(sorted(kinds))}",
        "video begins / lasts, s": f"{video.first_seconds:.3f} / {video.seconds:.3f}",
        **{f"audio {number} begins / lasts, s": f"{track.first_seconds:.3f} / {track.seconds:.3f}"
           for number, track in enumerate(audios, 1)},
        "host frames lagged": _share(frames.lagged, frames.rendered),
        "main frames skipped": _share(frames.skipped, frames.encoded),
        "host leaks": "unknown" if leaks is None else str(leaks),
    }


def table(columns: Sequence[Mapping[str, str]]) -> str:
    lines = [[label, *(column.get(label, "-") for column in columns)] for label in max(columns, key=len, default=())]
    widths = [max(map(len, cells)) for cells in zip(*lines)]
    return "\n".join("  ".join(map(str.ljust, line, widths)).rstrip() for line in lines)
