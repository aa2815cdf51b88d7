# SPDX-License-Identifier: GPL-2.0-or-later
"""Which of the host's sources is heard on which track of the vertical stream."""

import json
from dataclasses import replace

import pytest
from host_fixture import FPS, VERTICAL, start, stop
from livehost.checks import stream_problems
from livehost.folder import Source
from livehost.waiting import wait_until

TONES_HZ = {"tone A": 500, "tone B": 1500}
FIRST, SIXTH = 1, 32
EACH_A_TONE = {"One": "tone A", "Two": "tone B"}


def add_tones(setup, vertical, mixers=FIRST):
    """Two tones, each in a scene of its own, both in the main scene; the mixers are the user's, of the second tone."""
    def tone(name, mixers):
        sine = f"sine=f={TONES_HZ[name]}:r=48000,aformat=channel_layouts=stereo"
        return Source(name, "ffmpeg_source", {"is_local_file": False, "input": sine, "input_format": "lavfi"}, mixers)
    setup.add_scenes({"Main": [Source("A", "scene", {}), Source("B", "scene", {})],
                      "A": [tone("tone A", FIRST)], "B": [tone("tone B", mixers)]}, vertical)


def wait_loaded(host):
    """Until both tones play: the host leaks a media source that it ends while it is still opening."""
    host.wait_for_log("Restored 2 scene")
    for tone in TONES_HZ:
        wait_until(lambda: host.request("GetMediaInputStatus", inputName=tone)["mediaState"] ==
                   "OBS_MEDIA_STATE_PLAYING", 20, f"{tone} playing")


def problems(setup, sixth):
    heard = [set(TONES_HZ.values()), *[set()] * 4, {TONES_HZ[tone] for tone in sixth}]
    return stream_problems(setup.vertical(), replace(VERTICAL, tones_hz=heard))


@pytest.mark.parametrize(("vertical", "mixers", "sixth"), [
    (EACH_A_TONE, FIRST, {"tone A"}),
    ({"Two": "tone A", "One": "tone B"}, FIRST, {"tone B"}),
    ({"One": "tone A", "Two": "A"}, FIRST | SIXTH, {"tone A", "tone B"}),
    # libobs keeps no mixers for a scene: it is heard where its own inputs are routed.
    ({"One": "A", "Two": "B"}, FIRST | SIXTH, {"tone B"}),
], ids=["first-active", "second-active", "user-routed", "host-scene"])
def test_active_scene_is_heard_on_track_six(setup, vertical, mixers, sixth):
    """A marker on the wrong source or for other tracks, or a source that plays on when the host's audio has ended."""
    add_tones(setup, vertical, mixers)
    with setup.host() as host:
        wait_loaded(host)
        start(host, 2 * FPS)
        stop(host)
    assert problems(setup, sixth) == []


def test_gives_mixers_back(setup):
    """A marker that stays on the user's source when the canvas that set it is gone, or that nobody asked for."""
    add_tones(setup, EACH_A_TONE)
    setup.add_profile("Q", useactivesceneaudio=False)

    def sixth():
        return [host.request("GetInputAudioTracks", inputName=tone)["inputAudioTracks"]["6"] for tone in TONES_HZ]

    with setup.host() as host:
        wait_loaded(host)
        # Scenes are assigned once more when all is loaded, which takes the marker off for a moment.
        wait_until(lambda: sixth() == [True, False], 20, "marker on the active scene's source")
        host.request("SetCurrentProfile", profileName="Q")
        assert sixth() == [False, False]
        start(host, 2 * FPS)
        stop(host)
    assert problems(setup, {}) == []
    saved = json.loads((setup.folder.config / "basic/scenes/C.json").read_text())["sources"]
    assert [source["mixers"] for source in saved if source["name"] in TONES_HZ] == [FIRST, FIRST]
