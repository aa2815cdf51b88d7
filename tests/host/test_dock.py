# SPDX-License-Identifier: GPL-2.0-or-later
"""The dock and its dialogs in the host's window, worked by mouse and keyboard."""

import shutil

import pytest
from livehost.hands import DOCK, FLOATING, LEFT, RIGHT, SETTINGS_ITEM, Hands
from livehost.scene import marking_source
from livehost.waiting import wait_until

from livehost.stage import FPS, start_by_hand, stop_by_hand

SCENE_BUTTONS = ["addButton", "removeButton", "renameButton", "assignButton"]
STREAM_BUTTONS = ["startButton", "stopButton"]
SETTINGS_TITLE = "Vertical Canvas — Settings"


@pytest.fixture
def first_run(any_stage, tmp_path):
    """A host that has never seen the module, with two scenes."""
    shutil.rmtree(any_stage.module_config)
    any_stage.add_profile("P", rtmpurl="", streamkey="")
    any_stage.folder.add_collection("C", {"Main": [marking_source(tmp_path / "marking.png")], "Other": []})
    return any_stage


def test_scenes(first_run):
    """A movement of a user's hand that the dock answers wrongly, and scenes that the next run does not know."""
    with first_run.host() as host:
        hands = Hands(host)
        hands.lists("► Scene 1")
        assert hands.look(DOCK)["floating"]
        hands.give_name("addButton", "Add Scene", "  Intro ")
        hands.lists("► Scene 1", " Intro")
        hands.give_name("addButton", "Add Scene", " Intro  ")
        assert hands.box("Add Scene") == 'A scene named " Intro  " already exists.'
        hands.give_name("addButton", "Add Scene", "   ")
        hands.gone("Add Scene")
        hands.click_row("sceneList", 1)
        hands.lists(" Scene 1", "► Intro")
        assert [item["bold"] and item["current"] for item in hands.look("sceneList")["items"]] == [False, True]
        hands.reads("sceneLabel", "Scene: Intro")
        assert hands.give_name("renameButton", "Rename Scene", "Scene 1 ") == "Intro"
        assert hands.box("Rename Scene") == 'A scene named "Scene 1 " already exists.'
        hands.give_name("renameButton", "Rename Scene", "Outro")
        hands.lists(" Scene 1", "► Outro")
        for row, way, seen in ((1, "twice", "► Outro [Main]"), (2, "OK", "► Outro [Other]"),
                               (1, "Cancel", "► Outro [Other]"), (0, "OK", "► Outro"), (1, "OK", "► Outro [Main]")):
            hands.click("assignButton")
            hands.window("Assign OBS Scene — Outro")
            assert [item["text"] for item in hands.look("sourceList")["items"]] == ["(None)", "Main", "Other"]
            hands.click_row("sourceList", row, twice=way == "twice")
            if way != "twice":
                hands.press(way)
            hands.gone("Assign OBS Scene — Outro")
            hands.lists(" Scene 1", seen)
        hands.click_row("sceneList", 0)
        hands.lists("► Scene 1", " Outro [Main]")
        for button, left in (("Cancel", ["► Scene 1", " Outro [Main]"]), ("Yes", ["► Outro [Main]"])):
            hands.click("removeButton")
            assert hands.box("Remove Scene", button) == 'Remove scene "Scene 1"? This cannot be undone.'
            hands.lists(*left)
    with first_run.host() as host:
        hands = Hands(host)
        hands.lists("► Outro [Main]")
        hands.click("removeButton")
        hands.box("Remove Scene", "Yes")
        hands.lists()
        hands.reads("sceneLabel", "No active scene")
        assert hands.enabled(*SCENE_BUTTONS) == [True, False, False, False]


def test_settings_and_stream(first_run):
    """A setting that is lost between the form and the stream, and a status that is not the stream's."""
    key = first_run.vertical_key
    with first_run.host() as host:
        hands = Hands(host)
        hands.choose(SETTINGS_ITEM)
        hands.type("  ", "urlEdit")
        hands.press("Save")
        assert hands.box("Validation") == "RTMP URL cannot be empty."
        hands.type(first_run.rtmp.url, "urlEdit")
        hands.type(key, "keyEdit")
        wait_until(lambda: len(hands.look("keyEdit")["text"]) == len(key), 20, "key typed")
        for button, text in (("Hide", key), ("Show", "●" * len(key))):
            hands.click("keyToggle")
            hands.reads("keyToggle", button)
            hands.reads("keyEdit", text)
        hands.press("Save")
        hands.gone(SETTINGS_TITLE)
        start_by_hand(host, hands)
        stop_by_hand(host, hands)
    assert len(first_run.vertical().video.packets) >= FPS


def test_placement(any_stage):
    """A dock that the next run shows somewhere else."""
    # No program knows on Wayland where its windows are.
    known = ("x", "y") if any_stage.screen.environment["QT_QPA_PLATFORM"] == "xcb" else ()

    def place(hands):
        return [hands.look(DOCK)[key] for key in ("floating", "area", "width", "height", *known)]

    before = None
    for area in (LEFT, RIGHT, FLOATING, None, None):
        with any_stage.host() as host:
            hands = Hands(host)
            host.wait_for_log("Vertical Canvas dock registered")
            if before:
                wait_until(lambda: place(hands) == before, 20, f"dock as before: {before}")
            if area is None:
                assert hands.sees(DOCK) == bool(before)
                hands.choose("Vertical Canvas")
                wait_until(lambda: hands.sees(DOCK) != bool(before), 20, "dock hidden or shown")
                before = None
            else:
                hands.place_dock(area)
                before = place(hands)


def test_profile_switch(stage):
    """A dock that loses its runtime, or that works on with one that is gone."""
    stage.add_profile("Q", canvaswidth=180, canvasheight=320)
    stage.add_profile("R", canvaswidth="wide")
    with stage.host() as host:
        hands = Hands(host)
        hands.lists("► One [Main]")
        for profile in "QPRQ":
            host.request("SetCurrentProfile", profileName=profile)
            if profile == "R":
                assert hands.box("Corvane Vertical Canvas") == (
                    "Failed to rebuild the vertical canvas after profile switch.\n\n"
                    "Restart OBS before using the vertical output again.")
                hands.reads("statusLabel", "No output")
                hands.lists()
                hands.reads("sceneLabel", "No active scene")
                assert not any(hands.enabled(*SCENE_BUTTONS, *STREAM_BUTTONS))
            else:
                hands.lists("► One [Main]")
                hands.reads("statusLabel", "Stopped")
                start_by_hand(host, hands)


NAMES = ["Ärger im 日本", 'a "b" \'c\' [d] {e}', "🎥 ✂️", "► One", "<b>x</b> & &x", "[Scenes]", "a=b;#c%s%n", "\\n\\",
         "x" * 300]


def test_names(stage):
    """A name that the list, the dialogs or the file take for something else than text."""
    active = NAMES.index("<b>x</b> & &x")
    listed = [" One [Main]", *(f"{" " if row != active else "► "}{name} [{name}]" for row, name in enumerate(NAMES))]
    stage.folder.add_collection("C", {"Main": [], **{name: [] for name in NAMES}})
    with stage.host() as host:
        hands = Hands(host)
        for row, name in enumerate(NAMES, 1):
            hands.give_name("addButton", "Add Scene", name)
            wait_until(lambda: len(hands.scenes()) == row + 1, 20, f"{name} added")
            hands.click_row("sceneList", row)
            hands.assign(name, name)
        hands.click_row("sceneList", active + 1)
        hands.lists(*listed)
        hands.reads("sceneLabel", f"Scene: {NAMES[active]}")
        hands.click("removeButton")
        assert hands.box("Remove Scene", "Cancel") == f'Remove scene "{NAMES[active]}"? This cannot be undone.'
    with stage.host() as host:
        Hands(host).lists(*listed)
    assert "OBS source not found" not in host.log()


@pytest.mark.parametrize("opener", ["addButton", "assignButton", "removeButton", SETTINGS_ITEM])
def test_exit_under_dialog(stage, opener):
    """A dialog that the host's end takes the ground from under."""
    with stage.host() as host:
        hands = Hands(host)
        hands.lists("► One [Main]")
        before = len(hands.windows())
        (hands.choose if opener == SETTINGS_ITEM else hands.click)(opener)
        wait_until(lambda: len(hands.windows()) > before, 20, "dialog")
