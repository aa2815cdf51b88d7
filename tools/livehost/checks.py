# SPDX-License-Identifier: GPL-2.0-or-later
"""What is wrong with a received stream, in words; an empty list says that all is as it should be."""

from collections.abc import Iterator
from dataclasses import dataclass

import numpy as np

from .received import Received, Track
from .scene import MIDDLE_RGB

NAL_NAMES = {1: "slice", 5: "IDR", 6: "SEI", 7: "SPS", 8: "PPS", 9: "AUD", 12: "filler"}

_LIMIT_SECONDS = 0.1
_RATE_TOLERANCE = 0.005
_BITRATE_TOLERANCE = 0.1
# Encoding, scaling and the conversion of colours each cost a few steps.
_COLOUR_TOLERANCE = 8


@dataclass(frozen=True)
class Format:
    """What a stream was asked to be; the bitrate is checked only where it is given."""

    width: int
    height: int
    fps: int
    audio_tracks: int
    profile: str | None = None
    bitrate_kbps: int | None = None


def stream_faults(stream: Received, wanted: Format) -> list[str]:
    """Faults of the form and the times of any of our streams."""
    if len(stream.videos) != 1 or not stream.audios:
        return [f"{len(stream.videos)} video and {len(stream.audios)} audio tracks with packets"]
    return [*_video_faults(stream.video, wanted), *_audio_faults(stream.audios, wanted), *_time_faults(stream)]


def _video_faults(video: Track, wanted: Format) -> Iterator[str]:
    facts = video.facts
    if facts["codec_name"] != "h264":
        yield f"video codec is {facts['codec_name']}"
    if wanted.profile and facts["profile"] != wanted.profile:
        yield f"video profile is {facts['profile']}, not {wanted.profile}"
    if (facts["width"], facts["height"]) != (wanted.width, wanted.height):
        yield f"size is {facts['width']}x{facts['height']}, not {wanted.width}x{wanted.height}"
    if abs(video.packets_per_second / wanted.fps - 1) > _RATE_TOLERANCE:
        yield f"{video.packets_per_second:.2f} frames per second, not {wanted.fps}"
    if facts["has_b_frames"] or not np.array_equal(video.pts, video.dts):
        yield "there are B-frames"
    if wanted.bitrate_kbps and abs(video.bitrate_kbps / wanted.bitrate_kbps - 1) > _BITRATE_TOLERANCE:
        yield f"video bitrate is {video.bitrate_kbps:.0f} kbps, not {wanted.bitrate_kbps}"


def _audio_faults(audios: list[Track], wanted: Format) -> Iterator[str]:
    if len(audios) != wanted.audio_tracks:
        yield f"{len(audios)} audio tracks, not {wanted.audio_tracks}"
    for number, track in enumerate(audios, 1):
        form = tuple(track.facts[key] for key in ("codec_name", "sample_rate", "channels", "channel_layout"))
        if form != ("aac", "48000", 2, "stereo"):
            yield f"audio track {number} is {form}"


def _time_faults(stream: Received) -> Iterator[str]:
    tracks = {"video": stream.video} | {f"audio track {n}": track for n, track in enumerate(stream.audios, 1)}
    for name, track in tracks.items():
        if abs(track.first_seconds) >= _LIMIT_SECONDS:
            yield f"{name} begins at {track.first_seconds:.3f} s"
        if not track.dts_strictly_grow:
            yield f"dts of {name} do not grow strictly"
        if abs(track.seconds - stream.video.seconds) > _LIMIT_SECONDS:
            yield f"{name} lasts {track.seconds:.3f} s, video {stream.video.seconds:.3f} s"


def entry_faults(stream: Received) -> list[str]:
    """Whether a decoder can enter an MPEG-TS stream at its first byte."""
    faults = []
    units = dict.fromkeys(NAL_NAMES.get(unit, str(unit)) for unit in stream.first_nal_types())
    begin = [unit for unit in units if unit != "SEI"]
    if begin[:4] != ["AUD", "SPS", "PPS", "IDR"]:
        faults.append(f"the first access unit is {' '.join(units)}")
    if any(track.position < stream.video.position for track in stream.audios):
        faults.append("audio precedes the first video packet")
    return faults


def cover_faults(frame: np.ndarray) -> list[str]:
    """Whether the frame shows the clip's middle third from edge to edge, judged by its top corners."""
    height, width, _ = frame.shape
    corners = frame[: height // 40, : width // 40], frame[: height // 40, -(width // 40):]
    faults = []
    for side, corner in zip(("left", "right"), corners):
        colour = corner.reshape(-1, 3).mean(axis=0)
        if np.abs(colour - MIDDLE_RGB).max() > _COLOUR_TOLERANCE:
            faults.append(f"the top {side} corner is {colour.round().astype(int)}, not the middle third's {MIDDLE_RGB}")
    return faults
