# SPDX-License-Identifier: GPL-2.0-or-later
"""Remote control of the real host by a client of obs-websocket."""

import json
import random
import re
import time
from collections import Counter
from contextlib import closing, contextmanager
from pathlib import Path

import pytest
from livehost.actions import UserActions
from livehost.received import Received
from livehost.servers import RtmpServer, free_port
from livehost.waiting import wait_until
from proxies import LOOPBACK, TcpProxy
from websocket_client import SUCCESS, WebSocketClient

DOCUMENT = Path(__file__).resolve().parents[2] / "docs/REMOTE.md"
EXAMPLES = [(request, json.loads(data), json.loads(answer)) for request, data, answer in
            re.findall(r"^(\w+) (\{.*\}) → (\{.*\})$", DOCUMENT.read_text(), re.MULTILINE)]
REQUESTS = {request for request, _, _ in EXAMPLES}
SHOWN = {"CreateScene": ["► One [Main]", " Two"], "RenameScene": ["► One [Main]", " Three"],
         "SetActiveScene": [" One [Main]", "► Three"], "RemoveScene": ["► One [Main]"]}


@contextmanager
def controlled(setup):
    """The host, its user and a client."""
    port = free_port()
    config = setup.folder.config / "plugin_config/obs-websocket/config.json"
    config.parent.mkdir(parents=True)
    config.write_text(json.dumps(
        {"first_load": False, "server_enabled": True, "server_port": port, "auth_required": False}))
    with setup.host() as host, closing(WebSocketClient(port)) as client:
        yield host, UserActions(host), client


def run_examples(user, client):
    for request, data, wanted in EXAMPLES:
        answer = client.ask(request, **data)
        assert wanted.items() <= answer.items() and ("error" in answer) == ("error" in wanted), (request, answer)
        if request in SHOWN:
            user.lists(*SHOWN[request])


def test_works_as_documented(setup):
    """An answer that is not the document's, and what a client changes and dock, file or stream do not follow."""
    assert len(REQUESTS) == 13
    with controlled(setup) as (host, user, client):
        run_examples(user, client)
        assert "count=1" in (setup.module_config / "settings-global.ini").read_text()
        assert "streamKey" not in client.ask("GetSettings")
        status = wait_until(lambda: (now := client.ask("GetStatus"))["phase"] == "connected" and now, 20, "on air")
        assert status["active"] and status["bytes"] and status["encoder"] == "obs_x264"
        assert (status["canvasWidth"], status["canvasHeight"]) == (216, 384)
        assert client.ask("StopStream") == {}
        wait_until(lambda: not client.ask("GetStatus")["active"], 20, "stopped")
        assert "remote-key" not in host.log()
    assert Received(setup.rtmp.recording("remote-key")).video.packets


def test_refuses_what_it_cannot_do(setup):
    """A refusal that is none, names something else, or leaves half of it done."""
    setup.add_profile("R", canvaswidth="wide")
    with controlled(setup) as (host, user, client):
        for request, data, error in (
                ("SetActiveScene", {}, "Missing field: sceneName"),
                ("SetActiveScene", {"sceneName": 1}, "Not a text: sceneName"),
                ("CreateScene", {"sceneName": " One "}, "There is a vertical scene of this name: One"),
                ("CreateScene", {"sceneName": " "}, "Empty: sceneName"),
                ("CreateScene", {"sceneName": "x" * 10_001}, "Too long: sceneName"),
                ("CreateScene", {"sceneName": "a\n[b]"}, "Not a single line: sceneName"),
                ("AssignScene", {"sceneName": "One", "obsSceneName": "?"}, "OBS has no such scene: ?"),
                ("SetSettings", {"videoBitrate": 1}, "Value out of range: videoBitrate"),
                ("SetSettings", {"canvasWidth": 217}, "Value out of range: canvasWidth"),
                ("SetSettings", {"url": "x" * 10_001}, "Value out of range: url"),
                ("SetSettings", {"fpsNum": "30"}, "Wrong type: fpsNum"),
                ("SetSettings", {"videoBitrate": 700, "volume": 3}, "Unknown field: volume")):
            assert client.ask(request, **data) == {"error": error}
        assert client.ask("GetSettings")["videoBitrate"] == 600
        client.ask("SetSettings", url=f"rtmp://{LOOPBACK}:{free_port()}/live")
        client.ask("StartStream")
        client.event("StreamStateChanged", phase="stopped")
        assert client.ask("GetStatus")["reason"] == "Stream rejected — check server URL and stream key"
        user.press("OK")
        host.request("SetCurrentProfile", profileName="R")
        user.box("Corvane Vertical Canvas")
        assert all(client.ask(request) == {"error": "There is no vertical canvas"} for request in REQUESTS)
        assert client.event("ActiveSceneChanged") == {"sceneName": ""}
        assert not client.events["StreamStateChanged"]


def test_tells_of_scenes(setup):
    """An event that is left out, late or wrong, whoever makes the change."""
    with controlled(setup) as (host, user, client):
        for change in (lambda: user.give_name("addButton", "Add Scene", "Two"),
                       lambda: host.request("SetSceneName", sceneName="Main", newSceneName="Other"),
                       lambda: client.ask("AssignScene", sceneName="Two", obsSceneName="Other")):
            change()
            assert client.event("SceneListChanged") == client.ask("GetSceneList")
        assert [scene["obsSceneName"] for scene in client.ask("GetSceneList")["scenes"]] == ["Other", "Other"]
        user.click("sceneList", 1)
        assert client.event("ActiveSceneChanged") == {"sceneName": "Two"}
        begin = time.monotonic()
        for name in ["One", "Two"] * 5:
            client.ask("SetActiveScene", sceneName=name)
            assert client.event("ActiveSceneChanged") == {"sceneName": name}
        assert time.monotonic() - begin < 5, "half a second each"
        client.ask("RemoveScene", sceneName="Two")
        assert client.event("ActiveSceneChanged") == {"sceneName": "One"}


def test_tells_of_the_stream(setup, tmp_path):
    """A state of the stream that a client is not told, or only in part."""
    with RtmpServer(tmp_path) as server:
        proxy = TcpProxy(server.port)
        setup.add_profile("P", resilient=True, rtmpurl=f"rtmp://{LOOPBACK}:{proxy.port}/live")
        with controlled(setup) as (_, _, client):
            def becomes(phase, active=True):
                assert client.event("StreamStateChanged") == {"active": active, "phase": phase}
            proxy.cut()
            client.ask("StartStream")
            becomes("connecting")
            proxy.mend()
            becomes("connected")
            server.kill()
            becomes("reconnecting")
            earlier, later = (client.event("ReconnectingChanged", reconnecting=True) for _ in range(2))
            assert 0 < earlier["attempts"] < later["attempts"] and earlier["reason"] and later["reason"]
            status = client.ask("GetStatus")
            assert status["phase"] == "reconnecting" and status["attempts"] >= later["attempts"] and status["reason"]
            server.start()
            becomes("connected")
            back = client.event("ReconnectingChanged", reconnecting=False)
            assert back == {"reconnecting": False, "attempts": 0, "reason": ""}
            client.ask("StopStream")
            becomes("stopped", active=False)


@pytest.mark.parametrize("seconds", [1, pytest.param(60, marks=pytest.mark.long)])
def test_survives_any_request(setup, seconds):
    """A request that ends or blocks the host, leaves something or spoils what follows, and a key in an answer."""
    normal = {"url": setup.rtmp.url, "videoBitrate": 600, "reconnectAutomatically": False}
    plain = ["One", "Two", "Three", "Main", *normal.values()] * 3
    plain += [None, -1, 0.5, 1e300, 2**64 - 1, -2**63, "", " ", "\0", "\n[Scenes]\r", "ü" * 5000, [], {}]
    seed, codes = 1 if seconds == 1 else time.time_ns(), Counter()
    chance = random.Random(seed)

    def value(depth=0):
        values = [value(depth + 1) for _ in range(chance.randrange(4))] if chance.random() < 0.2 and depth < 5 else []
        return chance.choice([values, dict(zip(chance.sample(names, 3), values))]) if values else chance.choice(plain)

    with controlled(setup) as (_, user, client):
        names = [*client.ask("GetSettings"), "streamKey", "sceneName", "newSceneName", "obsSceneName", "?", ""]
        end = time.monotonic() + seconds
        try:
            while codes.total() < 300 or time.monotonic() < end:
                if codes.total() % 200 == 0:  # odd settings keep a stream from going on air
                    client.ask("SetSettings", streamKey="fuzz-key", **normal)
                request, data, _ = chance.choice(EXAMPLES)
                if request in ("StopStream", "ToggleStream") and chance.random() < 0.95:
                    continue  # lets streams last long enough to connect
                chosen = [*data, *chance.choices(names, k=chance.choice([0, 0, 1, 3]))]
                fields = {name: chance.choice([(normal | data).get(name), value()]) for name in chosen}
                code, answer = client.call(chance.choice([request] * 9 + ["Unknown"]), **chance.choice(
                    [{"requestData": fields}] * 9 + [{"requestData": value()}, {}]))
                codes[code] += 1
                assert "fuzz-key" not in str(answer)
        finally:
            print(f"seed {seed}, {codes.total()} requests: {codes}")
        assert {*codes} == {SUCCESS, 401, 600}, "obs-websocket's own: wrong type, no such request"
        for message in "{", "null", '{"op": 6}', '{"op": 6, "d": []}', '{"op": 99, "d": {}}', b"\xff":
            with closing(WebSocketClient(client.sock.getpeername()[1])) as other:
                other.send(message)

        client.ask("StopStream")
        wait_until(lambda: not client.ask("GetStatus")["active"], 20, "stopped")
        client.ask("SetSettings", **normal)
        client.ask("CreateScene", sceneName="One")
        client.ask("AssignScene", sceneName="One", obsSceneName="Main")
        for name in {scene["sceneName"] for scene in client.ask("GetSceneList")["scenes"]} - {"One"}:
            client.ask("RemoveScene", sceneName=name)
        run_examples(user, client)
