# SPDX-License-Identifier: GPL-2.0-or-later
"""The output type that keeps the connection, in the host."""

import pytest
from livehost.folder import Profile
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


def test_profile_of_another_size(stage):
    """A live vertical stream that keeps the host's own canvas at the old profile's size."""
    stage.add_profile("P", resilient=True)
    stage.folder.add_profile(Profile("Q", width=960, height=540))
    with stage.host() as host:
        hands = Hands(host)
        hands.click("startButton")
        hands.reads("statusLabel", "Streaming")
        host.request("SetCurrentProfile", profileName="Q")
        video = host.request("GetVideoSettings")
        assert (video["baseWidth"], video["baseHeight"]) == (960, 540)
        hands.reads("statusLabel", "Stopped")
