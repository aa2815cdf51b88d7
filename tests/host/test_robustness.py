# SPDX-License-Identifier: GPL-2.0-or-later
"""Damaged files and abrupt endings: the vertical stream may fail, the host may not."""

import os
import shutil
from dataclasses import replace
from functools import partial
from pathlib import Path

import numpy as np
import pytest
from host_fixture import VERTICAL, main_runs_on, start, start_main, stop
from livehost.checks import stream_problems


def config_folder_is_a_file(setup):
    shutil.rmtree(setup.module_config)
    setup.module_config.touch()


def profile_file(make):
    """The module's file in the profile is replaced by what `make` puts in its place."""
    def prepare(setup):
        path = setup.folder.profile_folder("P") / "corvane-vertical-canvas.ini"
        path.unlink()
        make(path)
    return prepare


def keys(**values):
    return lambda setup: setup.add_profile("P", **values)


EMPTY_URL = ("Vertical output start failed: RTMP URL is empty. "
             "Configure it in Tools → Corvane Vertical Streaming Settings.")
DEFAULT_CANVAS = "Canvas initialised: 1080x1920 @ 30/1 fps"


@pytest.mark.parametrize(("prepare", "lines"), [
    (config_folder_is_a_file, ["Failed to open global config: ", "mux opened: "]),
    (profile_file(Path.mkdir), ["Failed to open profile config: ", DEFAULT_CANVAS, EMPTY_URL]),
    (profile_file(lambda path: path.symlink_to(path)), ["Failed to open profile config: ", DEFAULT_CANVAS, EMPTY_URL]),
    (profile_file(lambda path: path.write_bytes(bytes(range(256)) * 64)), [DEFAULT_CANVAS, EMPTY_URL]),
    (keys(canvaswidth="wide"), ["obs_view_add2() failed", "Runtime init failed — plugin will not load"]),
    (keys(rtmpurl=""), [EMPTY_URL]),
    (keys(streamkey=""), ["Encoder obs_x264 failed to start output: Missing RTMP server/key",
                          "No encoder could start successfully"]),
], ids=["no-folder", "file-is-folder", "file-is-loop", "garbage", "nonsense", "no-url", "no-key"])
def test_damaged_settings_spare_the_host(setup, prepare, lines):
    """A setting or a folder that cannot be used and takes the host or its main stream along."""
    prepare(setup)
    with setup.host(refused=any("plugin will not load" in line for line in lines)) as host:
        start_main(host)
        main_runs_on(host)
        assert host.vertical_active() == ("mux opened: " in lines)
        stop(host)
    for line in lines:
        assert f"[corvane-obs-vertical] {line}" in host.log()


def test_profile_switch_ends_the_stream(setup):
    """A stream that outlives its profile, or a new runtime that keeps parts of the old one."""
    setup.add_profile("Q", canvaswidth=180, canvasheight=320, streamkey="other")
    with setup.host() as host:
        start(host)
        host.request("SetCurrentProfile", profileName="Q")
        main_runs_on(host)
        assert host.vertical_output() is None
        stop(host)
        old = setup.vertical()
        setup.vertical_key = "other"
        start(host)
        stop(host)
    new = setup.vertical()
    assert stream_problems(old, VERTICAL) == []
    assert stream_problems(new, replace(VERTICAL, width=180, height=320)) == []
    assert host.log().count("Restored 1 scene(s), active: One") == 2
    assert abs(new.frame(0.5).mean() - old.frame(0.5).mean()) < 5


def test_profile_folder_may_vanish(setup):
    """Settings that cannot be saved any more and hold up a start or the host's end."""
    with setup.host() as host:
        host.wait_for_log("Restored 1 scene")
        shutil.rmtree(setup.folder.profile_folder("P"))
        start(host)
        stop(host)
    assert "Failed to save profile config" in host.log()


def test_leaves_nothing_behind(setup, request):
    """Leftovers of one stream that disturb a later one, or that the host's end finds still at work, and a stream key
    that others can read where the host's own files are closed to them."""
    request.addfinalizer(partial(os.umask, os.umask(0o077)))
    with setup.host() as host:
        for _ in range(10):
            start(host, 10)
            stop(host)
            assert setup.vertical().video.first_seconds < 0.1
        start(host)
    log = host.log()
    assert log.count("mux opened: ") == 11
    assert log.index("OBS exiting — stopping vertical output") < log.index("[corvane-obs-vertical] Unloaded")
    assert len(setup.vertical().audios) == 6
    files = map(setup.folder.profile_folder("P").joinpath, ("basic.ini", "corvane-vertical-canvas.ini"))
    assert {file.stat().st_mode & 0o777 for file in files} == {0o600}


@pytest.mark.parametrize("resilient", [False, pytest.param(True, marks=pytest.mark.long)])
def test_streams_after_video_resets(setup, resilient):
    """The view that the host frees behind our back when the user changes its size or its frame rate."""
    setup.add_profile("P", resilient)
    with setup.host() as host:
        host.wait_for_log("Restored 1 scene")
        for change in ({"baseWidth": 960, "baseHeight": 540, "outputWidth": 960, "outputHeight": 540},
                       {"fpsNumerator": 60, "fpsDenominator": 1}):
            end = len(host.log())
            host.request("SetVideoSettings", **change)
            host.wait_for_log("Canvas added again after the host's video reset: 216x384 @ 30/1 fps", after=end)
            start(host)
            stop(host)
            received = setup.vertical()
            assert (received.video.facts["width"], received.video.facts["height"]) == (216, 384)
            assert np.all(np.diff(received.video.dts) > 0)
            assert np.ptp(received.frame(0.5)) > 150
