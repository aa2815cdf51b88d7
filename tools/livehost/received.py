# SPDX-License-Identifier: GPL-2.0-or-later
"""What a server received, read back with ffprobe and ffmpeg."""

import json
import re
import subprocess
from collections.abc import Collection
from dataclasses import dataclass
from fractions import Fraction
from functools import cached_property
from pathlib import Path
from typing import Any

import numpy as np

_AAC_FRAME_SAMPLES = 1024
_HEARD_DB, _SILENT_DB = -30, -60
_PACKET_FIELDS = "stream_index,pts,dts,size,pos"
_STREAM_FIELDS = ("index,codec_type,codec_name,profile,width,height,has_b_frames,time_base,sample_rate,channels,"
                  "channel_layout")


def _output(*command: str) -> bytes:
    return subprocess.run(command, capture_output=True, check=True, timeout=300).stdout


@dataclass(frozen=True)
class Track:
    """One stream of a file: ffprobe's description of it and its packets in order of arrival."""

    facts: dict[str, Any]
    packets: list[dict[str, Any]]

    @cached_property
    def dts(self) -> np.ndarray:
        """Decoding times in ticks of the container's time base."""
        return np.array([packet["dts"] for packet in self.packets], dtype=np.int64)

    @cached_property
    def pts(self) -> np.ndarray:
        return np.array([packet["pts"] for packet in self.packets], dtype=np.int64)

    @property
    def first_seconds(self) -> float:
        return float(self.pts[0] * Fraction(self.facts["time_base"]))

    @property
    def span_seconds(self) -> float:
        """From the first packet's begin to the last one's."""
        return float((self.dts[-1] - self.dts[0]) * Fraction(self.facts["time_base"]))

    @property
    def seconds(self) -> float:
        """With a nominal last packet: containers do not all store its length."""
        if self.facts["codec_type"] == "audio":
            return self.span_seconds + _AAC_FRAME_SAMPLES / int(self.facts["sample_rate"])
        return self.span_seconds + self.span_seconds / max(len(self.packets) - 1, 1)

    @property
    def packets_per_second(self) -> float:
        return (len(self.packets) - 1) / self.span_seconds if self.span_seconds else 0.0

    @property
    def bitrate_kbps(self) -> float:
        return sum(int(packet["size"]) for packet in self.packets) * 8 / self.seconds / 1000


class Received:
    """A received file; it is read once, when it is opened."""

    def __init__(self, path: Path) -> None:
        self.path = path
        answer = json.loads(_output("ffprobe", "-v", "error", "-show_entries",
                                    f"packet={_PACKET_FIELDS}:stream={_STREAM_FIELDS}", "-of", "json", str(path)))
        tracks = [Track(stream, [packet for packet in answer["packets"] if packet["stream_index"] == stream["index"]])
                  for stream in answer["streams"]]
        self.videos = [track for track in tracks if track.facts["codec_type"] == "video" and track.packets]
        self.audios = [track for track in tracks if track.facts["codec_type"] == "audio" and track.packets]

    @property
    def video(self) -> Track:
        return self.videos[0]

    def frame(self, seconds: float) -> np.ndarray:
        """The decoded frame at a time after the file's start: height × width × 3 of 8 bit RGB."""
        data = _output("ffmpeg", "-v", "error", "-nostdin", "-ss", f"{seconds:.3f}", "-i", str(self.path),
                       "-map", "0:v:0", "-frames:v", "1", "-f", "rawvideo", "-pix_fmt", "rgb24", "-")
        return np.frombuffer(data, np.uint8).reshape(self.video.facts["height"], self.video.facts["width"], 3)

    def tones_hz(self, track: int, candidates: Collection[int]) -> set[int]:
        """Those of the tones that are heard on an audio track; -1 for one that is neither loud nor silent."""
        data = _output("ffmpeg", "-v", "error", "-nostdin", "-i", str(self.path), "-map", f"0:a:{track}", "-ac", "1",
                       "-ar", "48000", "-f", "f32le", "-")
        samples = np.frombuffer(data, np.float32)[24000:]
        spectrum = np.abs(np.fft.rfft(samples * np.hanning(len(samples)))) * 4 / len(samples)
        frequencies = np.fft.rfftfreq(len(samples), 1 / 48000)
        levels = {tone: 20 * np.log10(spectrum[abs(frequencies - tone) < 20].max() + 1e-9) for tone in candidates}
        return {tone if level > _HEARD_DB else -1 for tone, level in levels.items() if level > _SILENT_DB}

    def first_nal_types(self) -> list[int]:
        """The H.264 NAL unit types of the first access unit of an Annex B stream, in order."""
        # The "data" muxer writes packets as they are; any H.264 muxer might mend them.
        unit = _output("ffmpeg", "-v", "error", "-nostdin", "-i", str(self.path), "-map", "0:v:0",
                       "-copyinkf", "-c", "copy", "-frames:v", "1", "-f", "data", "-")
        return [found.group(1)[0] & 0x1F for found in re.finditer(rb"\x00\x00\x01(.)", unit, re.DOTALL)]
