# SPDX-License-Identifier: GPL-2.0-or-later
"""Scenes for demo and bench: a busy one with a tone, and a still one."""

import subprocess
from pathlib import Path

import numpy as np
from PIL import Image, ImageDraw, ImageFont

from .folder import Source

WIDTH, HEIGHT = 1280, 720
LEFT_RGB, MIDDLE_RGB, RIGHT_RGB = (24, 58, 107), (28, 92, 58), (107, 36, 50)
THIRD = WIDTH // 3
TONE_HZ = 440
# Encoding, scaling and the conversion of colours each cost a few steps.
_COLOUR_TOLERANCE = 8


def _make_clip(path: Path) -> None:
    """Encodes the moving panel with a tone: a restless texture, a clock and colour bars.

    It is no larger than the middle third, as a processor that stands in for a graphics card pays
    for every pixel. Scaled up to the vertical canvas its detail is about 4 Mbit/s, so that a
    constant bitrate is reached without padding.
    """
    graph = ";".join([
        "color=c=black:s=390x520:r=30[panel]",
        "life=s=195x150:r=30:mold=12:ratio=0.25:seed=7:life_color=0xf0e040:death_color=0x303010:"
        "mold_color=0x304080,scale=390:300:flags=neighbor[texture]",
        "testsrc2=s=390x120:r=30[bars]",
        "[panel][texture]overlay=0:0[a]",
        "[a][bars]overlay=0:400[b]",
        "[b]drawtext=font='DejaVu Sans Mono':text='%{pts\\:hms}':fontsize=44:fontcolor=white:x=35:y=333",
    ])
    tone = f"sine=frequency={TONE_HZ}:beep_factor=4:sample_rate=48000,aformat=channel_layouts=stereo"
    subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", "-f", "lavfi", "-i", graph, "-f", "lavfi", "-i", tone,
                    "-t", "20", "-c:v", "libx264", "-preset", "ultrafast", "-crf", "20", "-g", "30",
                    "-pix_fmt", "yuv420p", "-c:a", "aac", "-b:a", "128k", str(path)], check=True, timeout=300)


def still_source(path: Path, name: str, picture: Image.Image) -> Source:
    picture.save(path)
    return Source(name, "image_source", {"file": str(path)})


def _label(picture: Image.Image, text: str, x: int, y: int) -> None:
    ImageDraw.Draw(picture).text((x, y), text, fill="white", font=ImageFont.load_default(size=80), anchor="mm")


def busy_sources(folder: Path) -> list[Source]:
    """Three labelled thirds, a clip in a loop in the middle one; the files are made in the folder."""
    picture = Image.new("RGB", (WIDTH, HEIGHT), MIDDLE_RGB)
    picture.paste(LEFT_RGB, (0, 0, THIRD, HEIGHT))
    picture.paste(RIGHT_RGB, (2 * THIRD + 1, 0, WIDTH, HEIGHT))
    for index, label in enumerate(("LEFT", "MIDDLE", "RIGHT")):
        _label(picture, label, WIDTH * (2 * index + 1) // 6, 100)
    _make_clip(folder / "clip.mkv")
    clip = {"local_file": str(folder / "clip.mkv"), "looping": True, "hw_decode": False}
    return [still_source(folder / "background.png", "background", picture),
            Source("clip", "ffmpeg_source", clip, x=445, y=180)]


def cover_problems(frame: np.ndarray) -> list[str]:
    """Whether the frame shows the busy scene's middle third from edge to edge, judged by its top corners."""
    height, width, _ = frame.shape
    corners = {"left": frame[: height // 40, : width // 40], "right": frame[: height // 40, -(width // 40):]}
    means = {side: corner.reshape(-1, 3).mean(axis=0) for side, corner in corners.items()}
    return [f"the top {side} corner is {mean.round().astype(int)}, not the middle third's {MIDDLE_RGB}"
            for side, mean in means.items() if np.abs(mean - MIDDLE_RGB).max() > _COLOUR_TOLERANCE]


def pause_sources(folder: Path) -> list[Source]:
    """A scene for a break: one quiet picture with a word."""
    picture = Image.new("RGB", (WIDTH, HEIGHT), (34, 34, 46))
    _label(picture, "PAUSE", WIDTH // 2, HEIGHT // 2)
    return [still_source(folder / "pause.png", "card", picture)]
