# SPDX-License-Identifier: GPL-2.0-or-later
"""The output type that keeps the connection, in the host."""

import pytest
from livehost.hands import Hands
from livehost.received import Received
from livehost.servers import RtmpServer
from livehost.waiting import wait_until

from livehost.stage import FPS, main_runs_on, sent_frames, start, stop


def test_comes_back(stage, tmp_path):
    """A stream that stays away when its server is back, a dock that says otherwise, statistics that
    show nothing, a main stream that notices, or a stream key in the log."""
    with RtmpServer(tmp_path) as server:
        stage.add_profile("P", resilient=True, rtmpurl=server.url)
        with stage.host() as host:
            hands = Hands(host)
            start(host)
            hands.reads("statusLabel", "Streaming")
            assert hands.look("statusLabel")["tip"] == ""
            before = host.request("GetOutputStatus", outputName=host.vertical_output()["outputName"])
            server.stop()
            hands.reads("statusLabel", "Reconnecting (2)")
            assert hands.look("statusLabel")["tip"] == "Connection refused"
            assert host.vertical_active()
            main_runs_on(host)
            server.start()
            hands.reads("statusLabel", "Streaming")
            output = host.vertical_output()["outputName"]
            frames = sent_frames(host, output)
            wait_until(lambda: sent_frames(host, output) >= frames + 3 * FPS, 30, "frames after the return")
            after = host.request("GetOutputStatus", outputName=output)
            assert after["outputBytes"] > before["outputBytes"] > 0
            assert after["outputSkippedFrames"] > before["outputSkippedFrames"]
            main_runs_on(host)
            stop(host)
        server.wait_idle()
        received = Received(server.recording(stage.vertical_key))
    first = [track.first_seconds for track in [received.video, *received.audios]]
    assert first == pytest.approx([0] * 7, abs=0.03)
    assert stage.vertical_key not in host.log()


@pytest.mark.parametrize(("host_fps", "canvas", "received_fps", "line"), [
    (60, (30, 1), 30, "the stream has 30/1, one of every 2 frames"),
    (30, (60, 1), 30, "the stream has 30/1, one of every 1 frames"),
    (30, (20, 1), 30, "the stream has 30/1, one of every 1 frames"),
    ("29.97", (30000, 1001), 29.97, "Canvas initialised: 216x384 @ 30000/1001 fps"),
])
def test_clock(stage, host_fps, canvas, received_fps, line):
    """A stream whose picture runs slower or faster than its sound."""
    stage.add_profile("P", resilient=True, fps=host_fps, fpsnum=canvas[0], fpsden=canvas[1])
    with stage.host() as host:
        start(host, 6 * FPS)
        stop(host)
    received = stage.vertical()
    assert received.video.packets_per_second == pytest.approx(received_fps, abs=0.02)
    assert received.video.span_seconds == pytest.approx(received.audios[0].span_seconds, abs=0.2)
    assert line in host.log()
