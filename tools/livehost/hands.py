# SPDX-License-Identifier: GPL-2.0-or-later
"""A person at the host's window: sees, clicks and types through the driver module in the host."""

from typing import Any

from .host import LiveHost
from .waiting import wait_until

DOCK = "corvane-vertical-canvas"
SETTINGS_ITEM = "Corvane Vertical Streaming Settings"
BELOW_ANOTHER, FLOATING, LEFT, RIGHT = -1, 0, 1, 2


class Hands:
    """Widgets go by their object names; whatever is asked for is waited for."""

    def __init__(self, host: LiveHost, seconds: float = 20) -> None:
        self._host = host
        self._seconds = seconds

    def look(self, name: str | None = None) -> dict[str, Any]:
        """What is to be seen of a widget: "text", "enabled", "items", "x", "y", "width" and so on.
        Without a name it is the text field of the open dialog."""
        return self._ask("look", **({"name": name} if name else {}))["widget"]

    def enabled(self, *names: str) -> list[bool]:
        return [self.look(name)["enabled"] for name in names]

    def sees(self, name: str) -> bool:
        return self._host.remote.ask("look", name=name)["found"]

    def reads(self, name: str, text: str, seconds: float | None = None) -> None:
        """Waits until the widget shows the text."""
        wait_until(lambda: self.look(name)["text"] == text, seconds or self._seconds, f"{name} reading {text!r}")

    def lists(self, *lines: str) -> None:
        """Waits until the dock's list shows these lines."""
        wait_until(lambda: self.scenes() == [*lines], self._seconds, f"scene list {lines}")

    def scenes(self) -> list[str]:
        """The dock's list, line for line."""
        return [item["text"] for item in self.look("sceneList").get("items", [])]

    def windows(self) -> list[dict[str, Any]]:
        """Every open window: "class", "title", a message box's "text", a dialog's "buttons"."""
        return self._host.remote.ask("windows")["windows"]

    def focus(self) -> str:
        return self._host.remote.ask("windows")["focus"]

    def window(self, title: str) -> dict[str, Any]:
        """Waits for the window of that title."""
        return wait_until(lambda: next((seen for seen in self.windows() if seen["title"] == title), None),
                          self._seconds, f"window {title!r}")

    def box(self, title: str, button: str = "OK") -> str:
        """Waits for the message box of that title, answers it, and returns its text."""
        def seen() -> list[str]:
            return [window["text"] for window in self.windows() if window["title"] == title and "text" in window]
        text, = wait_until(seen, self._seconds, f"message box {title!r}")
        self.press(button)
        wait_until(lambda: not seen(), self._seconds, f"message box {title!r} closed")
        return text

    def gone(self, title: str) -> None:
        wait_until(lambda: all(seen["title"] != title for seen in self.windows()), self._seconds,
                   f"window {title!r} closed")

    def click(self, name: str) -> None:
        self._ask("click", name=name)

    def click_row(self, name: str, row: int, twice: bool = False) -> None:
        self._ask("click", name=name, row=row, twice=twice)

    def press(self, button: str) -> None:
        """Clicks the button with that text in the open dialog."""
        self._ask("click", button=button)

    def type(self, text: str, name: str | None = None) -> None:
        """Replaces the text of a field, or of the open dialog's only one."""
        self._ask("type", text=text, replace=True, **({"name": name} if name else {}))

    def give_name(self, button: str, title: str, name: str) -> str:
        """Enters a name in the dialog that the button opens; returns what the dialog proposed."""
        self.click(button)
        self.window(title)
        proposed = self.look()["text"]
        self.type(name)
        self.press("OK")
        return proposed

    def assign(self, vertical_scene: str, host_scene: str) -> None:
        """Lets the scene that is selected in the dock show a scene of the host."""
        title = f"Assign OBS Scene \u2014 {vertical_scene}"
        self.click("assignButton")
        self.window(title)
        choices = [item["text"] for item in self.look("sourceList")["items"]]
        self.click_row("sourceList", choices.index(host_scene))
        self.press("OK")
        self.gone(title)

    def key(self, name: str, key: int) -> None:
        """Presses one key, given by the toolkit's number, on a widget."""
        self._ask("key", name=name, key=key)

    def choose(self, item: str) -> None:
        """Chooses an item of the main window's menus."""
        self._host.remote.ask("action", text=item)

    def place_dock(self, area: int) -> None:
        """Docks our dock on a side of the window or under another dock's tab, or lets it float."""
        self._ask("place", name=DOCK, area=area)
        wait_until(lambda: self.look(DOCK)["floating"] == (area == FLOATING), self._seconds, "dock in its place")

    def longest_pause_ms(self) -> int:
        """For how long the host's event loop stood still at most since the last call."""
        return self._host.remote.ask("longest_pause")["ms"]

    def _ask(self, request: str, **data: Any) -> dict[str, Any]:
        answer: dict[str, Any] = {}

        def found() -> bool:
            nonlocal answer
            answer = self._host.remote.ask(request, **data)
            return answer["found"]
        wait_until(found, self._seconds, f"{data.get('name') or data.get('button') or 'text field'} in sight")
        return answer
