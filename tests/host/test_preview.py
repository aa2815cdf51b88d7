# SPDX-License-Identifier: GPL-2.0-or-later
"""The dock's live picture, grabbed from the screen."""

import numpy as np
import pytest
from host_fixture import FPS, start, stop
from livehost.actions import BELOW_ANOTHER, DOCK, FLOATING, RIGHT, UserActions
from livehost.waiting import wait_until
from PIL import Image

# Twice the preview's size in a docked dock.
WIDTH, HEIGHT = 524, 930
# Scaling and the coding of colours cost up to 6, a picture that is one pixel off 16 at least.
LARGEST_DIFFERENCE = 12


def worst_difference(shown, streamed):
    """Between the mean colours of blocks, which hardly depend on the pictures' sizes."""
    blocks = [np.asarray(Image.fromarray(picture).resize((18, 32), Image.Resampling.BOX)).astype(int)
              for picture in (shown, streamed)]
    return np.abs(blocks[0] - blocks[1]).max()


@pytest.mark.parametrize("screen", ["x11", "kiosk", "fine-kiosk"])
def test_preview_shows_the_stream(new_setup, screen):
    """A preview in another place or scale than the stream, or cut off, from the host's start on."""
    setup = new_setup(screen)
    setup.add_profile("P", canvaswidth=WIDTH, canvasheight=HEIGHT, videobitrate=2000)
    with (setup.module_config / "settings-global.ini").open("a") as file:
        file.write("\n[VerticalCanvas]\ndockfloating=false\n")
    with setup.host() as host:
        user = UserActions(host)
        start(host, 2 * FPS)
        shown = setup.preview(user, WIDTH, HEIGHT)
        stop(host)
    streamed = setup.vertical().frame(1.5)
    shifted = [worst_difference(np.roll(shown, step * setup.screen.scale, axis), streamed)
               for axis in (0, 1) for step in (-1, 1)]
    difference = worst_difference(shown, streamed)
    print("worst difference", difference, "one pixel off", shifted)
    assert difference < LARGEST_DIFFERENCE < min(shifted)


def displays(host, event):
    return host.log().count(f"VerticalPreviewWidget: display {event}")


def test_display_comes_and_goes_with_the_window(any_screen):
    """A display that outlives its window, or that is missing when the window is back."""
    with any_screen.host() as host:
        user = UserActions(host)
        for _ in range(20):
            for area in (RIGHT, FLOATING):
                user.place_dock(area)
            for seen in (False, True):
                user.choose("Vertical Canvas")
                wait_until(lambda: user.sees(DOCK) == seen, 20, "dock hidden or shown")
        user.place_dock(RIGHT)
        user.place_dock(BELOW_ANOTHER)
        wait_until(lambda: displays(host, "created") == displays(host, "destroyed"), 20, "display gone under a tab")
        created = displays(host, "created")
        assert created > 40
    assert created == displays(host, "created") == displays(host, "destroyed")
