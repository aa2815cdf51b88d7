# SPDX-License-Identifier: GPL-2.0-or-later
"""Pictures of our own for the host to show: a stage with a busy clip and a tone, and a still for pixel checks."""

import subprocess
from pathlib import Path

import numpy as np
from PIL import Image, ImageDraw, ImageFont

from .folder import Source

WIDTH, HEIGHT = 1280, 720
LEFT_RGB, MIDDLE_RGB, RIGHT_RGB = (24, 58, 107), (28, 92, 58), (107, 36, 50)
_THIRD = WIDTH // 3
TONE_HZ = 440

_PANEL_LEFT, _PANEL_TOP, _PANEL_SIZE = 445, 180, "390x520"


def make_clip(path: Path, seconds: int = 20) -> None:
    """Encodes the moving panel with a tone: a restless texture, a clock and colour bars.

    It is no larger than the middle third, as a processor that stands in for a graphics card pays
    for every pixel. Scaled up to the vertical canvas its detail is about 4 Mbit/s, so that a
    constant bitrate is reached without padding.
    """
    graph = ";".join([
        f"color=c=black:s={_PANEL_SIZE}:r=30[panel]",
        "life=s=195x150:r=30:mold=12:ratio=0.25:seed=7:life_color=0xf0e040:death_color=0x303010:"
        "mold_color=0x304080,scale=390:300:flags=neighbor[texture]",
        "testsrc2=s=390x120:r=30[bars]",
        "[panel][texture]overlay=0:0[a]",
        "[a][bars]overlay=0:400[b]",
        "[b]drawtext=font='DejaVu Sans Mono':text='%{pts\\:hms}':fontsize=44:fontcolor=white:x=35:y=333",
    ])
    tone = f"sine=frequency={TONE_HZ}:beep_factor=4:sample_rate=48000,aformat=channel_layouts=stereo"
    subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", "-f", "lavfi", "-i", graph, "-f", "lavfi", "-i", tone,
                    "-t", str(seconds), "-c:v", "libx264", "-preset", "ultrafast", "-crf", "20", "-g", "30",
                    "-pix_fmt", "yuv420p", "-c:a", "aac", "-b:a", "128k", str(path)], check=True, timeout=300)


def clip_source(path: Path, name: str = "clip") -> Source:
    """The clip, playing in a loop in its place in the middle third."""
    settings = {"local_file": str(path), "looping": True, "hw_decode": False}
    return Source(name, "ffmpeg_source", settings, x=_PANEL_LEFT, y=_PANEL_TOP)


def stage_sources(folder: Path) -> list[Source]:
    """The demo's scene, its files made in the folder: three labelled thirds, the clip in the middle one."""
    picture = Image.new("RGB", (WIDTH, HEIGHT), MIDDLE_RGB)
    picture.paste(LEFT_RGB, (0, 0, _THIRD, HEIGHT))
    picture.paste(RIGHT_RGB, (2 * _THIRD + 1, 0, WIDTH, HEIGHT))
    draw, font = ImageDraw.Draw(picture), ImageFont.load_default(size=80)
    for index, label in enumerate(("LEFT", "MIDDLE", "RIGHT")):
        draw.text((WIDTH * (2 * index + 1) // 6, 100), label, fill="white", font=font, anchor="mm")
    picture.save(folder / "stage.png")
    make_clip(folder / "clip.mkv")
    return [_still_source(folder / "stage.png", "background"), clip_source(folder / "clip.mkv")]


def pause_sources(folder: Path) -> list[Source]:
    """A scene for a break: one quiet picture with a word."""
    picture = Image.new("RGB", (WIDTH, HEIGHT), (34, 34, 46))
    ImageDraw.Draw(picture).text((WIDTH // 2, HEIGHT // 2), "PAUSE", fill="white", font=ImageFont.load_default(size=80),
                                 anchor="mm")
    picture.save(folder / "pause.png")
    return [_still_source(folder / "pause.png", "card")]


def _still_source(path: Path, name: str) -> Source:
    return Source(name, "image_source", {"file": str(path)})


def marking() -> np.ndarray:
    """A still whose every region has a colour of its own: thirds, and in the middle one four quarters
    with a white frame, so that a shift, a mirroring or a wrong scale moves an edge."""
    picture = np.empty((HEIGHT, WIDTH, 3), np.uint8)
    picture[:, :_THIRD] = LEFT_RGB
    picture[:, 2 * _THIRD:] = RIGHT_RGB
    left, centre, right, middle = _THIRD, WIDTH // 2, 2 * _THIRD, HEIGHT // 2
    picture[:middle, left:centre] = (200, 40, 40)
    picture[:middle, centre:right] = (40, 160, 40)
    picture[middle:, left:centre] = (40, 40, 200)
    picture[middle:, centre:right] = (200, 180, 40)
    for top, bottom, start, end in ((60, 80, 480, 800), (640, 660, 480, 800), (60, 660, 480, 500), (60, 660, 780, 800)):
        picture[top:bottom, start:end] = 255
    return picture


def marking_source(path: Path, name: str = "marking") -> Source:
    """The still, stored losslessly at `path`."""
    Image.fromarray(marking()).save(path)
    return _still_source(path, name)
