# SPDX-License-Identifier: GPL-2.0-or-later
"""What a user does at the host's window: look, click and type, through the driver module in the host."""

from typing import Any

from .host import LiveHost
from .waiting import wait_until

DOCK = "corvane-vertical-canvas"
SETTINGS_ITEM = "Corvane Vertical Streaming Settings"
SETTINGS_TITLE = "Vertical Canvas — Settings"
BELOW_ANOTHER, FLOATING, LEFT, RIGHT = -1, 0, 1, 2
_SECONDS = 20


class UserActions:
    """Widgets go by their object names; whatever is asked for is waited for."""

    def __init__(self, host: LiveHost) -> None:
        self._host = host

    def look(self, name: str | None = None) -> dict[str, Any]:
        """A widget's properties ("text", "enabled", "width"…), its "x" and "y" on the screen, a list's "items".
        Without a name it is the text field of the open dialog."""
        return self._ask("look", name=name)

    def enabled(self, *names: str) -> list[bool]:
        return [self.look(name)["enabled"] for name in names]

    def sees(self, name: str) -> bool:
        return bool(self._host.ask("look", name=name))

    def reads(self, name: str, text: str, seconds: float = _SECONDS) -> None:
        """Waits until the widget shows the text."""
        def shown() -> str:
            widget = self.look(name)
            return widget.get("displayText", widget["text"])
        wait_until(lambda: shown() == text, seconds, f"{name} reading {text!r}")

    def lists(self, *lines: str) -> None:
        """Waits until the dock's list shows these lines."""
        wait_until(lambda: self.scenes() == [*lines], _SECONDS, f"scene list {lines}")

    def scenes(self) -> list[str]:
        return [item["text"] for item in self.look("sceneList").get("items", [])]

    def windows(self) -> list[dict[str, Any]]:
        """The properties of every open window."""
        return self._host.ask("windows")["windows"]

    def boxes(self, title: str) -> list[str]:
        """Texts of the message boxes of that title."""
        return [window["text"] for window in self.windows() if window["windowTitle"] == title and "text" in window]

    def box(self, title: str, button: str = "OK") -> str:
        """Waits for the one message box of that title, answers it, and returns its text."""
        text, = wait_until(lambda: self.boxes(title), _SECONDS, f"message box {title!r}")
        self.press(button)
        wait_until(lambda: not self.boxes(title), _SECONDS, f"message box {title!r} closed")
        return text

    def dialog(self, title: str, is_open: bool = True) -> None:
        """Waits until the dialog is open, or has been closed."""
        wait_until(lambda: is_open == any(seen["windowTitle"] == title for seen in self.windows()), _SECONDS,
                   f"dialog {title!r} {'open' if is_open else 'closed'}")

    def click(self, name: str, row: int = -1) -> None:
        """A row is that of a list."""
        self._ask("click", name=name, row=row)

    def press(self, button: str) -> None:
        """Clicks the button with that text in the open dialog."""
        self._ask("click", button=button)

    def type(self, text: str, name: str | None = None) -> None:
        """Replaces the text of a field, or of the open dialog's only one."""
        self._ask("type", text=text, name=name)

    def give_name(self, button: str, title: str, name: str) -> str:
        """Enters a name in the dialog that the button opens; returns what the dialog proposed."""
        self.click(button)
        self.dialog(title)
        proposed = self.look()["text"]
        self.type(name)
        self.press("OK")
        return proposed

    def assign(self, vertical_scene: str, host_scene: str) -> None:
        """Lets the scene that is selected in the dock show a scene of the host."""
        title = f"Assign OBS Scene — {vertical_scene}"
        self.click("assignButton")
        self.dialog(title)
        choices = [item["text"] for item in self.look("sourceList")["items"]]
        self.click("sourceList", choices.index(host_scene))
        self.press("OK")
        self.dialog(title, is_open=False)

    def open_settings(self) -> None:
        self.choose(SETTINGS_ITEM)
        self.dialog(SETTINGS_TITLE)

    def save_settings(self) -> None:
        self.press("Save")
        self.dialog(SETTINGS_TITLE, is_open=False)

    def choose(self, item: str) -> None:
        """Chooses an item of the main window's menus."""
        self._host.ask("action", text=item)

    def place_dock(self, area: int) -> None:
        """Docks our dock on a side of the window or under another dock's tab, or lets it float."""
        self._ask("place", name=DOCK, area=area)
        wait_until(lambda: self.look(DOCK)["floating"] == (area == FLOATING), _SECONDS, "dock in its place")

    def _ask(self, request: str, **data: Any) -> dict[str, Any]:
        return wait_until(lambda: self._host.ask(request, **data), _SECONDS,
                          f"{data.get('name') or data.get('button') or 'text field'} in sight")
