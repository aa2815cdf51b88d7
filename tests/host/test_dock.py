# SPDX-License-Identifier: GPL-2.0-or-later
"""The dock and its dialogs in the host's window, operated by mouse and keyboard."""

import shutil

import pytest
from host_fixture import FPS, vertical_frames
from livehost.actions import DOCK, FLOATING, LEFT, RIGHT, SETTINGS_ITEM, UserActions
from livehost.waiting import wait_until

NAMES = ["Ärger im 日本", 'a "b" \'c\' [d] {e}', "🎥 ✂️", "► One", "[Scenes]", "a=b;#c%s%n", "\\n\\", "x" * 300,
         "<b>x</b> & &x"]
BUTTONS = ["addButton", "removeButton", "renameButton", "assignButton", "startButton", "stopButton"]


@pytest.fixture
def first_run(any_screen):
    """A host that has never seen the module."""
    shutil.rmtree(any_screen.module_config)
    any_screen.add_profile("P", rtmpurl="", streamkey="")
    any_screen.folder.add_collection("C", {"Main": [], **{name: [] for name in NAMES}})
    return any_screen


def test_edits_scenes(first_run):
    """A user action that the dock answers wrongly, a name that is taken for something else than text, and scenes that
    the next run does not know."""
    *others, last = (f"{name} [{name}]" for name in NAMES)
    with first_run.host() as host:
        user = UserActions(host)
        user.lists("► Scene 1")
        assert user.look(DOCK)["floating"]
        for row, name in enumerate(NAMES, 1):
            user.give_name("addButton", "Add Scene", name)
            wait_until(lambda: len(user.scenes()) == row + 1, 20, f"{name} added")
            user.click("sceneList", row)
            user.reads("sceneLabel", f"Scene: {name}")
            user.assign(name, name)
        user.lists(" Scene 1", *(f" {line}" for line in others), f"► {last}")
        user.click("removeButton")
        assert user.box("Remove Scene", "Cancel") == f'Remove scene "{NAMES[-1]}"? This cannot be undone.'
        user.click("sceneList", 0)
        assert user.give_name("renameButton", "Rename Scene", NAMES[0]) == "Scene 1"
        assert user.box("Rename Scene") == f'A scene named "{NAMES[0]}" already exists.'
        user.click("removeButton")
        assert user.box("Remove Scene", "Yes") == 'Remove scene "Scene 1"? This cannot be undone.'
        user.give_name("renameButton", "Rename Scene", "Intro")
        user.lists(f"► Intro [{NAMES[0]}]", *(f" {line}" for line in [*others[1:], last]))
        assert [item["bold"] and item["current"] for item in user.look("sceneList")["items"]][:2] == [True, False]
    with first_run.host() as host:
        UserActions(host).lists(f"► Intro [{NAMES[0]}]", *(f" {line}" for line in [*others[1:], last]))
    assert "OBS source not found" not in host.log()


def test_streams_with_the_settings_entered(first_run):
    """A setting that is lost between the form and the stream, and a status that is not the stream's."""
    key = first_run.vertical_key
    with first_run.host() as host:
        user = UserActions(host)
        user.open_settings()
        user.type("  ", "urlEdit")
        user.press("Save")
        assert user.box("Validation") == "RTMP URL cannot be empty."
        user.type(first_run.rtmp.url, "urlEdit")
        user.type(key, "keyEdit")
        wait_until(lambda: len(user.look("keyEdit")["text"]) == len(key), 20, "key typed")
        for button, text in (("Hide", key), ("Show", "●" * len(key))):
            user.click("keyToggle")
            user.reads("keyToggle", button)
            user.reads("keyEdit", text)
        user.save_settings()
        user.click("startButton")
        wait_until(host.vertical_active, 20, "vertical stream")
        user.reads("statusLabel", "Streaming", seconds=1)
        assert user.enabled("startButton", "stopButton") == [False, True]
        wait_until(lambda: vertical_frames(host)[0] >= FPS, 60, "vertical frames")
        user.click("stopButton")
        user.reads("statusLabel", "Stopped")
        assert user.enabled("startButton", "stopButton") == [True, False]
        assert not host.vertical_active()
    assert len(first_run.vertical().video.packets) >= FPS


def test_remembers_its_place(any_screen):
    """A dock that the next run shows somewhere else."""
    # No program knows on Wayland where its windows are.
    known = ("x", "y") if any_screen.screen.environment["QT_QPA_PLATFORM"] == "xcb" else ()

    def place(user):
        return [user.look(DOCK)[key] for key in ("floating", "dockLocation", "width", "height", *known)]

    before = None
    for area in (LEFT, RIGHT, FLOATING, None, None):
        with any_screen.host() as host:
            user = UserActions(host)
            host.wait_for_log("Vertical Canvas dock registered")
            if before:
                wait_until(lambda: place(user) == before, 20, f"dock as before: {before}")
            if area is None:
                assert user.sees(DOCK) == bool(before)
                user.choose("Vertical Canvas")
                wait_until(lambda: user.sees(DOCK) != bool(before), 20, "dock hidden or shown")
                before = None
            else:
                user.place_dock(area)
                before = place(user)


@pytest.mark.parametrize("rounds", [1, pytest.param(100, marks=pytest.mark.long)])
@pytest.mark.parametrize("resilient", [False, True])
def test_follows_the_profile(setup, resilient, rounds):
    """A dock that loses its runtime or works on with one that is gone, a live vertical stream that keeps the host's own
    canvas at the old profile's size, or that leaves something."""
    sizes = {"P": (1280, 720), "Q": (960, 540)}
    setup.add_profile("P", resilient)
    setup.add_profile("Q", resilient, sizes["Q"], canvaswidth=180, canvasheight=320)
    setup.add_profile("R", canvaswidth="wide")
    with setup.host() as host:
        user = UserActions(host)

        def stream():
            user.lists("► One [Main]")
            user.reads("statusLabel", "Stopped")
            end = len(host.log())
            user.click("startButton")
            host.wait_for_log("first TS keyframe written", after=end)

        for profile in ["Q", "P"] * rounds:
            stream()
            host.request("SetCurrentProfile", profileName=profile)
            video = host.request("GetVideoSettings")
            # The standard type keeps the old size until the next change.
            assert not resilient or (video["baseWidth"], video["baseHeight"]) == sizes[profile]
        host.request("SetCurrentProfile", profileName="R")
        assert user.box("Corvane Vertical Canvas") == (
            "Failed to rebuild the vertical canvas after profile switch.\n\n"
            "Restart OBS before using the vertical output again.")
        user.reads("statusLabel", "No output")
        user.lists()
        user.reads("sceneLabel", "No active scene")
        assert not any(user.enabled(*BUTTONS))
        host.request("SetCurrentProfile", profileName="P")
        stream()


@pytest.mark.parametrize("opener", ["addButton", "assignButton", "removeButton", SETTINGS_ITEM])
def test_lets_the_host_end_under_a_dialog(setup, opener):
    """A dialog that outlives its dock or hangs the host's end."""
    with setup.host() as host:
        user = UserActions(host)
        user.lists("► One [Main]")
        before = len(user.windows())
        (user.choose if opener == SETTINGS_ITEM else user.click)(opener)
        wait_until(lambda: len(user.windows()) > before, 20, "dialog")
