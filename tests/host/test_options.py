# SPDX-License-Identifier: GPL-2.0-or-later
"""The options of the Tools menu and the hotkeys, with the host's own program scene, transitions and keys."""

import json

from host_fixture import HostFixture, start, stop
from livehost.actions import UserActions
from livehost.folder import Source
from livehost.waiting import wait_until

ONE, TWO = ["► One [Main]", " Two [Other]"], [" One [Main]", "► Two [Other]"]


def colour(name: str) -> Source:
    return Source(name, "color_source_v3", {"color": 0xff804020})


def test_follows_the_program(setup: HostFixture) -> None:
    """A vertical scene that follows the preview instead of the program, or does so without having been asked."""
    setup.add_scenes({"Main": [colour("a")], "Other": [colour("b")]}, {"One": "Main", "Two": "Other"})
    with setup.host() as host:
        user = UserActions(host)

        def program(scene: str) -> None:
            host.request("SetCurrentProgramScene", sceneName=scene)
            wait_until(lambda: host.request("GetCurrentProgramScene")["sceneName"] == scene, 20, scene)

        program("Other")
        user.lists(*ONE)
        user.choose("Follow the Program Scene")
        program("Main")
        user.lists(*ONE)
        program("Other")
        user.lists(*TWO)
        host.request("SetStudioModeEnabled", studioModeEnabled=True)
        host.request("SetCurrentPreviewScene", sceneName="Main")
        assert host.request("GetCurrentProgramScene")["sceneName"] == "Other"
        user.lists(*TWO)
        host.request("SetCurrentSceneTransition", transitionName="Fade")
        host.request("TriggerStudioModeTransition")
        user.lists(*ONE)
        user.click("sceneList", 1)
        user.lists(*TWO)
    with setup.host() as host:
        for scene, lines in ("Other", TWO), ("Main", ONE):
            host.request("SetCurrentProgramScene", sceneName=scene)
            UserActions(host).lists(*lines)


def test_hotkeys_work_the_vertical_stream(setup: HostFixture) -> None:
    """A key that does nothing in the host, or hangs it: callbacks come on the host's own hotkey thread. Or one that a
    switch of the profile or the host's end makes forgotten."""
    setup.add_scenes({"Main": [colour("a")], "Other": [colour("b")]}, {"One": "Main", "Two": "Other"})
    setup.add_profile("Q")
    file, key = setup.module_config / "hotkeys.json", [{"key": "OBS_KEY_F7"}]
    keys = {"CorvaneVertical.StopStream": key, "CorvaneVertical.NextScene": key, "scenes": {"One": key, "Two": []}}
    file.write_text(json.dumps(keys))
    with setup.host() as host:
        user = UserActions(host)

        def press(name: str) -> None:
            host.request("TriggerHotkeyByName", hotkeyName=f"CorvaneVertical.{name}")

        press("NextScene")
        user.lists(*TWO)
        press("Scene.One")
        user.lists(*ONE)
        host.request("SetCurrentProfile", profileName="Q")
        start(host)
        press("StopStream")
        wait_until(lambda: not host.vertical_active(), 20, "stopped by its key")
        assert host.main_active()
        press("StartStream")
        user.reads("statusLabel", "Streaming")
        stop(host)
    assert keys.items() <= json.loads(file.read_text()).items()
