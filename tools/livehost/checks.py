# SPDX-License-Identifier: GPL-2.0-or-later
"""What is wrong with a received stream, in words; an empty list says that all is as it should be."""

from collections.abc import Iterator, Sequence
from dataclasses import dataclass

import numpy as np

from .received import Received, Track

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


def stream_faults(stream: Received, wanted: Format) -> list[str]:
    """Faults in format, timestamps and sound of any of our streams."""
    if len(stream.videos) != 1 or not stream.audios:
        return [f"{len(stream.videos)} video and {len(stream.audios)} audio tracks with packets"]
    return [*_video_faults(stream.video, wanted), *_audio_faults(stream, wanted), *time_faults(stream)]


def _video_faults(video: Track, wanted: Format) -> Iterator[str]:
    facts = video.facts
    if facts["codec_name"] != "h264":
        yield f"video codec is {facts['codec_name']}"
    if wanted.profile and facts["profile"] != wanted.profile:
        yield f"video profile is {facts['profile']}, not {wanted.profile}"
    if (facts["width"], facts["height"]) != (wanted.width, wanted.height):
        yield f"size is {facts['width']}x{facts['height']}, not {wanted.width}x{wanted.height}"
    if abs(video.packets_per_second / wanted.fps - 1) > wanted.rate_tolerance:
        yield f"{video.packets_per_second:.2f} frames per second, not {wanted.fps}"
    if facts["has_b_frames"] or not np.array_equal(video.pts, video.dts):
        yield "there are B-frames"
    if wanted.bitrate_kbps and abs(video.bitrate_kbps / wanted.bitrate_kbps - 1) > _BITRATE_TOLERANCE:
        yield f"video bitrate is {video.bitrate_kbps:.0f} kbps, not {wanted.bitrate_kbps}"


def _audio_faults(stream: Received, wanted: Format) -> Iterator[str]:
    if len(stream.audios) != wanted.audio_tracks:
        yield f"{len(stream.audios)} audio tracks, not {wanted.audio_tracks}"
    for number, track in enumerate(stream.audios, 1):
        form = tuple(track.facts[key] for key in ("codec_name", "sample_rate", "channels", "channel_layout"))
        if form != ("aac", "48000", 2, "stereo"):
            yield f"audio track {number} is {form}"
    for index, tones in enumerate(wanted.tones_hz or ()):
        heard = stream.tones_hz(index, set().union(*wanted.tones_hz))
        if heard != tones:
            yield f"audio track {index + 1} has the tones {heard}, not {tones}"


def time_faults(stream: Received) -> Iterator[str]:
    tracks = {"video": stream.video} | {f"audio track {n}": track for n, track in enumerate(stream.audios, 1)}
    for name, track in tracks.items():
        if abs(track.first_seconds) >= _LIMIT_SECONDS:
            yield f"{name} begins at {track.first_seconds:.3f} s"
        if np.any(np.diff(track.dts) <= 0):
            yield f"dts of {name} do not grow strictly"
        if abs(track.seconds - stream.video.seconds) > _LIMIT_SECONDS:
            yield f"{name} lasts {track.seconds:.3f} s, video {stream.video.seconds:.3f} s"


def entry_faults(stream: Received) -> list[str]:
    """Whether a decoder can enter an MPEG-TS stream at its first byte."""
    units = [unit for unit in dict.fromkeys(stream.first_nal_types()) if unit != _SEI]
    faults = [] if units == _AUD_SPS_PPS_IDR else [f"the first access unit has the NAL unit types {units}"]
    if any(int(track.packets[0]["pos"]) < int(stream.video.packets[0]["pos"]) for track in stream.audios):
        faults.append("audio precedes the first video packet")
    return faults
