# SPDX-License-Identifier: GPL-2.0-or-later
"""What the servers receive while the main and the vertical canvas stream at the same time."""

import re
from types import SimpleNamespace

import numpy as np
import pytest
from livehost.received import Received
from livehost.scene import marking

from livehost.stage import FPS, HEIGHT, WIDTH, start, stop

CANDIDATES = ["jim_nvenc", "jim_nvenc_h264", "h264_amf", "obs_qsv11", "obs_qsv11_v2", "obs_x264"]
NAL_IDR, NAL_SEI, NAL_SPS, NAL_PPS, NAL_AUD = 5, 6, 7, 8, 9
# Coding noise, and half a pixel of blur at the edges of the marking.
LARGEST_DIFFERENCE = 8.0


def broadcast(stage, protocol):
    """One run of about three seconds."""
    if protocol == "srt":
        stage.srt.start()
        stage.add_profile("P", rtmpurl=stage.srt.url)
    with stage.host() as host:
        before = host.frames()
        start(host, 3 * FPS)
        skipped = (host.frames() - before).skipped
        stop(host)
    vertical = stage.vertical() if protocol == "rtmp" else Received(stage.srt.wait_hung_up())
    return SimpleNamespace(vertical=vertical, main=stage.main(), log=host.log(), skipped=skipped)


@pytest.fixture(scope="module")
def broadcasts(new_stage):
    return {protocol: broadcast(new_stage(), protocol) for protocol in ("rtmp", "srt")}


@pytest.fixture(params=["rtmp", "srt"])
def live(request, broadcasts):
    return broadcasts[request.param]


def test_form(live):
    """An encoder or a muxer set up wrongly: another codec, profile, size or rate, or a lost track."""
    video = live.vertical.video
    assert (video.facts["codec_name"], video.facts["profile"]) == ("h264", "High")
    assert (video.facts["width"], video.facts["height"]) == (WIDTH, HEIGHT)
    assert video.facts["has_b_frames"] == 0 and np.array_equal(video.pts, video.dts)
    assert video.packets_per_second == pytest.approx(FPS, rel=0.05)
    audios = [(track.facts["codec_name"], track.facts["sample_rate"], track.facts["channels"])
              for track in live.vertical.audios]
    assert audios == [("aac", "48000", 2)] * 6


def test_times(live):
    """Tracks that start late, run apart or go back in time, which players cannot put together."""
    tracks = [live.vertical.video, *live.vertical.audios]
    assert all(abs(track.first_seconds) < 0.1 for track in tracks)
    assert all(track.dts_strictly_grow for track in tracks)
    lengths = [track.seconds for track in tracks]
    assert max(lengths) - min(lengths) < 0.1


def test_begin(broadcasts):
    """An MPEG-TS stream that a decoder cannot enter at its first byte."""
    live = broadcasts["srt"]
    kinds = [kind for kind in dict.fromkeys(live.vertical.first_nal_types()) if kind != NAL_SEI]
    assert kinds == [NAL_AUD, NAL_SPS, NAL_PPS, NAL_IDR]
    assert live.vertical.video.position < min(track.position for track in live.vertical.audios)


def test_encoders_in_order(live):
    """A hardware encoder left out or preferred wrongly, or a failed one that ends the search."""
    tried = re.findall(r"Trying vertical output encoder: (\S+)", live.log)
    assert tried == CANDIDATES
    assert "Vertical output started with encoder: obs_x264" in live.log


def test_main_unharmed(live):
    """The vertical stream that costs the main one frames."""
    video = live.main.video
    whole = video.span_seconds * FPS + 1
    assert whole > 2 * FPS
    assert len(video.packets) == pytest.approx(whole, abs=1 + live.skipped)
    assert video.dts_strictly_grow


def covered(picture: np.ndarray) -> np.ndarray:
    """The picture as it must cover the canvas: one scale for both axes, centred, the overflow cut."""
    scale = max(HEIGHT / picture.shape[0], WIDTH / picture.shape[1])
    fine = 4  # sample points per pixel and axis
    y, x = ((np.arange(size * fine) + 0.5) / fine for size in (HEIGHT, WIDTH))
    row = ((y - HEIGHT / 2) / scale + picture.shape[0] / 2).astype(int)
    column = ((x - WIDTH / 2) / scale + picture.shape[1] / 2).astype(int)
    samples = picture[np.ix_(row, column)].astype(float)
    return samples.reshape(HEIGHT, fine, WIDTH, fine, 3).mean(axis=(1, 3))


def test_picture(live):
    """A scene that is letterboxed, stretched, mirrored, off centre, or in wrong colours."""
    difference = np.abs(live.vertical.frame(2) - covered(marking()))
    blocks = difference.reshape(8, HEIGHT // 8, 6, WIDTH // 6, 3).mean(axis=(1, 3, 4))
    print("mean difference per block:", np.round(blocks, 1), sep="\n")
    assert blocks.max() < LARGEST_DIFFERENCE
