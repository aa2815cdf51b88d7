# SPDX-License-Identifier: GPL-2.0-or-later
"""What is wrong with a received stream, in words; an empty list says that all is as it should be."""

from collections.abc import Iterator, Sequence
from dataclasses import dataclass

import numpy as np

from .received import Received

_SEI, _AUD_SPS_PPS_IDR = 6, [9, 7, 8, 5]
_LIMIT_SECONDS = 0.1
_BITRATE_TOLERANCE = 0.1


@dataclass(frozen=True)
class Format:
    """What a stream was asked to be, by default the module's; what is None is not checked."""

    width: int = 1080
    height: int = 1920
    fps: int = 30
    audio_tracks: int = 6
    profile: str | None = "High"
    bitrate_kbps: int | None = None
    tones_hz: Sequence[set[int]] | None = None  # heard on each audio track
    rate_tolerance: float = 0.005


def stream_problems(stream: Received, wanted: Format) -> list[str]:
    """Those in format, timestamps and sound of any of our streams, and at the begin of an MPEG-TS stream."""
    if len(stream.videos) != 1 or not stream.audios:
        return [f"{len(stream.videos)} video and {len(stream.audios)} audio tracks with packets"]
    entry = _entry_problems(stream) if stream.path.suffix == ".ts" else ()
    return [*_format_problems(stream, wanted), *time_problems(stream), *entry]


def _format_problems(stream: Received, wanted: Format) -> Iterator[str]:
    video, facts = stream.video, stream.video.facts
    exact = [("video codec", facts["codec_name"], "h264"),
             ("video profile", facts["profile"], wanted.profile or facts["profile"]),
             ("size", (facts["width"], facts["height"]), (wanted.width, wanted.height)),
             ("number of audio tracks", len(stream.audios), wanted.audio_tracks)]
    for number, track in enumerate(stream.audios, 1):
        form = [track.facts[key] for key in ("codec_name", "sample_rate", "channels", "channel_layout")]
        exact.append((f"audio track {number}", form, ["aac", "48000", 2, "stereo"]))
    for index, tones in enumerate(wanted.tones_hz or ()):
        exact.append((f"tones of audio track {index + 1}", stream.tones_hz(index, set().union(*wanted.tones_hz)), tones))
    for what, found, asked in exact:
        if found != asked:
            yield f"{what}: {found}, not {asked}"
    if abs(video.packets_per_second / wanted.fps - 1) > wanted.rate_tolerance:
        yield f"{video.packets_per_second:.2f} frames per second, not {wanted.fps}"
    if wanted.bitrate_kbps and abs(video.bitrate_kbps / wanted.bitrate_kbps - 1) > _BITRATE_TOLERANCE:
        yield f"video bitrate is {video.bitrate_kbps:.0f} kbps, not {wanted.bitrate_kbps}"
    if facts["has_b_frames"] or not np.array_equal(video.pts, video.dts):
        yield "there are B-frames"


def time_problems(stream: Received) -> Iterator[str]:
    tracks = {"video": stream.video} | {f"audio track {n}": track for n, track in enumerate(stream.audios, 1)}
    for name, track in tracks.items():
        if abs(track.first_seconds) >= _LIMIT_SECONDS:
            yield f"{name} begins at {track.first_seconds:.3f} s"
        if np.any(np.diff(track.dts) <= 0):
            yield f"dts of {name} do not grow strictly"
        if abs(track.seconds - stream.video.seconds) > _LIMIT_SECONDS:
            yield f"{name} lasts {track.seconds:.3f} s, video {stream.video.seconds:.3f} s"


def _entry_problems(stream: Received) -> Iterator[str]:
    """Whether a decoder can enter an MPEG-TS stream at its first byte."""
    units = [unit for unit in dict.fromkeys(stream.first_nal_types()) if unit != _SEI]
    if units != _AUD_SPS_PPS_IDR:
        yield f"the first access unit has the NAL unit types {units}"
    if any(int(track.packets[0]["pos"]) < int(stream.video.packets[0]["pos"]) for track in stream.audios):
        yield "audio precedes the first video packet"
