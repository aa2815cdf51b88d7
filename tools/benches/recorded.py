# SPDX-License-Identifier: GPL-2.0-or-later
"""The recorded packets that the packet measures replay."""

import subprocess
import zlib
from pathlib import Path

SECONDS = 20

_COMMAND = (
    "ffmpeg", "-v", "error", "-y",
    "-f", "lavfi", "-i", "testsrc2=size=1080x1920:rate=30,noise=alls=4:allf=t",
    "-f", "lavfi", "-i", "anoisesrc=color=pink:sample_rate=48000:amplitude=0.5",
    "-t", str(SECONDS),
    "-c:v", "libx264", "-preset", "veryfast", "-pix_fmt", "yuv420p", "-bf", "0", "-g", "60", "-keyint_min", "60",
    "-sc_threshold", "0", "-b:v", "4M", "-minrate", "4M", "-maxrate", "4M", "-bufsize", "4M",
    "-c:a", "aac", "-b:a", "160k", "-ac", "2",
)


def recording(build: Path) -> Path:
    """A file with 1080x1920 H.264 at 30 fps and 4 Mbit/s and one AAC track of 160 kbit/s; made
    once for a build folder."""
    path = build / "bench" / f"recording-{zlib.crc32(' '.join(_COMMAND).encode()):08x}.mp4"
    if not path.exists():
        part = path.with_suffix(".part.mp4")
        subprocess.run([*_COMMAND, str(part)], check=True)
        part.rename(path)
    return path
