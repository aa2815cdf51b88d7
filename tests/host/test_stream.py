# SPDX-License-Identifier: GPL-2.0-or-later
"""What the servers receive while the main and the vertical canvas stream at the same time."""

import re
from types import SimpleNamespace

import numpy as np
import pytest
from host_fixture import FPS, VERTICAL, marking, start, stop
from livehost.checks import stream_problems, time_problems
from livehost.received import Received
from livehost.servers import SrtListener
from PIL import Image, ImageOps

CANDIDATES = ["jim_nvenc", "jim_nvenc_h264", "h264_amf", "obs_qsv11", "obs_qsv11_v2", "obs_x264"]
# Coding noise, and half a pixel of blur at the edges of the marking.
LARGEST_DIFFERENCE = 8.0


def stream_once(setup, protocol):
    """One run of about three seconds."""
    with SrtListener(setup.folder.root / "srt") as srt:
        if protocol == "srt":
            setup.add_profile("P", rtmpurl=srt.url)
        with setup.host() as host:
            before = host.frames()
            start(host, 3 * FPS)
            skipped = (host.frames() - before).skipped
            stop(host)
        vertical = setup.vertical() if protocol == "rtmp" else Received(srt.recording())
    main = Received(setup.rtmp.recording(setup.main_key))
    return SimpleNamespace(vertical=vertical, main=main, log=host.log(), skipped=skipped)


@pytest.fixture(scope="module", params=["rtmp", "srt"])
def live(request, new_setup):
    return stream_once(new_setup(), request.param)


def test_has_the_format_and_times_asked_for(live):
    """An encoder or a muxer set up wrongly: another codec, profile, size or rate, a lost track, tracks that start late,
    run apart or go back in time, or an MPEG-TS stream that a decoder cannot enter at its first byte."""
    assert stream_problems(live.vertical, VERTICAL) == []


def test_tries_the_encoders_in_order(live):
    """A hardware encoder left out or preferred wrongly, or a failed one that ends the search."""
    assert re.findall(r"Trying vertical output encoder: (\S+)", live.log) == CANDIDATES
    assert "Vertical output started with encoder: obs_x264" in live.log


def test_leaves_the_main_stream_alone(live):
    """The vertical stream that costs the main one frames."""
    video = live.main.video
    whole = video.span_seconds * FPS + 1
    assert whole > 2 * FPS
    assert len(video.packets) == pytest.approx(whole, abs=1 + live.skipped)
    assert list(time_problems(live.main)) == []


def test_shows_the_scene_covering_the_canvas(live):
    """A scene that is letterboxed, stretched, mirrored, off centre, or in wrong colours."""
    wanted = ImageOps.fit(marking(), (VERTICAL.width, VERTICAL.height), Image.Resampling.BOX)
    difference = np.abs(live.vertical.frame(2) - np.asarray(wanted, float))
    blocks = difference.reshape(8, VERTICAL.height // 8, 6, VERTICAL.width // 6, 3).mean(axis=(1, 3, 4))
    print("mean difference per block:", np.round(blocks, 1), sep="\n")
    assert blocks.max() < LARGEST_DIFFERENCE
