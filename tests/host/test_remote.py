# SPDX-License-Identifier: GPL-2.0-or-later
"""Remote control: the vendor requests of obs-websocket in the real host."""

import json
import random
import re
from functools import partial
from pathlib import Path
from typing import Any

from host_fixture import HostFixture
from livehost.actions import UserActions
from livehost.host import HostError, LiveHost
from livehost.waiting import wait_until

DOCUMENT = Path(__file__).resolve().parents[2] / "docs/REMOTE.md"


def ask(host: LiveHost, request: str, **data: Any) -> dict[str, Any]:
    answer = host.request("CallVendorRequest", vendorName="corvane-vertical-canvas", requestType=request,
                          requestData=data)
    return answer["responseData"]


def test_remote_control_works_as_documented(setup: HostFixture) -> None:
    examples = re.findall(r"^(\w+) (\{.*\}) → (\{.*\})$", DOCUMENT.read_text(), re.MULTILINE)
    assert len({request for request, _, _ in examples}) == 13
    shown = {"CreateScene": ["► One [Main]", " Two"], "RenameScene": ["► One [Main]", " Three"],
             "SetActiveScene": [" One [Main]", "► Three"], "RemoveScene": ["► One [Main]"]}
    with setup.host() as host:
        user, remote = UserActions(host), partial(ask, host)
        for request, data, wanted in examples:
            answer = remote(request, **json.loads(data))
            assert json.loads(wanted).items() <= answer.items(), request
            assert ("error" in answer) == ("error" in wanted), request
            if request in shown:
                user.lists(*shown[request])
        assert "count=1" in (setup.module_config / "settings-global.ini").read_text()
        assert "streamKey" not in remote("GetSettings")
        status = wait_until(lambda: (now := remote("GetStatus"))["phase"] == "connected" and now, 20, "on air")
        assert status["active"] and status["encoder"] == "obs_x264"
        assert (status["canvasWidth"], status["canvasHeight"]) == (216, 384)
        wait_until(lambda: remote("GetStatus")["bytes"] > 0, 20, "bytes sent")
        assert remote("StopStream") == {}
        wait_until(lambda: not remote("GetStatus")["active"], 20, "stopped")
        assert "remote-key" not in host.log()


def test_remote_control_refuses_what_it_cannot_do(setup: HostFixture) -> None:
    with setup.host() as host:
        remote = partial(ask, host)
        for request, data, error in (
                ("SetActiveScene", {}, "Missing field: sceneName"),
                ("SetActiveScene", {"sceneName": 1}, "Not a text: sceneName"),
                ("CreateScene", {"sceneName": " One "}, "There is a vertical scene of this name: One"),
                ("CreateScene", {"sceneName": " "}, "Empty: sceneName"),
                ("AssignScene", {"sceneName": "One", "obsSceneName": "?"}, "OBS has no such scene: ?"),
                ("SetSettings", {"videoBitrate": 1}, "Value out of range: videoBitrate"),
                ("SetSettings", {"canvasWidth": 217}, "Value out of range: canvasWidth"),
                ("SetSettings", {"fpsNum": "30"}, "Wrong type: fpsNum"),
                ("SetSettings", {"videoBitrate": 700, "volume": 3}, "Unknown field: volume")):
            assert remote(request, **data) == {"error": error}
        assert remote("GetSettings")["videoBitrate"] == 600

        # Whatever comes: an answer, and a host that goes on.
        names = [*remote("GetSettings"), "sceneName", "newSceneName", "obsSceneName", ""]
        values = [None, True, -1, 2**63 - 1, 1e300, 0.5, "", "One", "\0", "ü" * 10_000, [], [{}], {"a": {"b": []}}]
        chance = random.Random(1)
        for _ in range(300):
            request = chance.choice(["SetActiveScene", "CreateScene", "RemoveScene", "RenameScene", "AssignScene",
                                     "GetSettings", "SetSettings", "GetSceneList", "GetStatus", "GetVersion"])
            try:
                remote(request, **{chance.choice(names): chance.choice(values) for _ in range(chance.randrange(4))})
            except HostError as refusal:
                assert "(301)" in str(refusal), "not obs-websocket's own refusal of the data"
        assert remote("GetVersion")["version"] == "1.0.0"
