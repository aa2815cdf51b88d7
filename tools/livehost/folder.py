# SPDX-License-Identifier: GPL-2.0-or-later
"""The host's configuration folder: profiles, scene collections, the module and its files."""

import json
import shutil
import subprocess
from collections.abc import Mapping, Sequence
from dataclasses import dataclass, field
from pathlib import Path

MODULE = "corvane-vertical-canvas"
_ALIGN_TOP_LEFT = 5
_BUILD = Path(__file__).resolve().parents[2] / "build/release"

Item = dict[str, object]


def built_module() -> Path:
    """The module as `./dev build` leaves it."""
    path = _BUILD / "src" / f"{MODULE}.so"
    if not path.is_file():
        raise FileNotFoundError(f"{path} is missing: run ./dev build")
    return path


@dataclass(frozen=True)
class Profile:
    """A host profile. The main stream's encoder is a cheap one unless `x264` holds settings for it; `vertical` holds
    keys of the module's profile file, and those left out keep the module's defaults."""

    name: str = "profile"
    server: str = ""
    key: str = "main"
    width: int = 1280
    height: int = 720
    fps: int = 30
    vertical: Mapping[str, object] = field(default_factory=dict)
    x264: Mapping[str, object] = field(default_factory=dict)
    resilient: bool = False


@dataclass(frozen=True)
class Source:
    """A source of the host, shown with its top left corner at x, y of its scene."""

    name: str
    kind: str
    settings: Mapping[str, object]
    mixers: int = 0x3F
    x: float = 0.0
    y: float = 0.0
    scale: float = 1.0
    filters: Sequence[Mapping[str, object]] = ()

    def entry(self) -> Item:
        return {"name": self.name, "id": self.kind, "settings": dict(self.settings), "mixers": self.mixers,
                "filters": list(self.filters)}


def write_ini(path: Path, sections: Mapping[str, Mapping[str, object]]) -> None:
    """Writes the host's INI dialect: no spaces around "=", booleans in lower case."""
    lines = []
    for section, keys in sections.items():
        lines.append(f"[{section}]")
        lines += [f"{key}={str(value).lower() if isinstance(value, bool) else value}" for key, value in keys.items()]
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text("\n".join([*lines, ""]))


def _scene(name: str, sources: Sequence[Source], hidden: Sequence[str] = ()) -> Item:
    shown = [*sources, *(Source(scene, "scene", {}) for scene in hidden)]
    items = [{"name": source.name, "id": number, "visible": source.name not in hidden, "align": _ALIGN_TOP_LEFT,
              "pos": {"x": source.x, "y": source.y}, "scale": {"x": source.scale, "y": source.scale}}
             for number, source in enumerate(shown, 1)]
    return {"name": name, "id": "scene", "settings": {"items": items, "id_counter": len(items)}}


class HostFolder:
    """Lays out what the host reads at its start; to be used while no host runs on the folder."""

    def __init__(self, root: Path) -> None:
        self.root = root
        self.config = root / "obs-studio"
        self.module_config = self.config / "plugin_config" / MODULE
        self._plugins = self.config / "plugins"
        self._build = _BUILD
        self.config.mkdir(parents=True, exist_ok=True)

    def profile_folder(self, name: str) -> Path:
        return self.config / "basic" / "profiles" / name

    def add_profile(self, profile: Profile) -> None:
        """Adds the profile, or replaces the one of that name."""
        folder = self.profile_folder(profile.name)
        write_ini(folder / "basic.ini", {
            "General": {"Name": profile.name},
            "Video": {"BaseCX": profile.width, "BaseCY": profile.height, "OutputCX": profile.width,
                      "OutputCY": profile.height, "FPSType": 0, "FPSCommon": profile.fps},
            "Audio": {"SampleRate": 48000, "ChannelSetup": "Stereo"},
            "Output": {"Mode": "Advanced" if profile.x264 else "Simple", "Reconnect": False},
            "SimpleOutput": {"StreamEncoder": "x264", "VBitrate": 1500, "ABitrate": 160,
                             "UseAdvanced": True, "Preset": "ultrafast"},
            "AdvOut": {"Encoder": "obs_x264", "ApplyServiceSettings": False, "TrackIndex": 1, "Track1Bitrate": 160},
        })
        (folder / "streamEncoder.json").write_text(json.dumps(dict(profile.x264)))
        service = {"type": "rtmp_custom", "settings": {"server": profile.server, "key": profile.key}}
        (folder / "service.json").write_text(json.dumps(service))
        vertical = folder / f"{MODULE}.ini"
        vertical.unlink(missing_ok=True)
        if profile.vertical:
            write_ini(vertical, {"VerticalCanvas": profile.vertical, "Resilience": {"enabled": profile.resilient}})

    def add_collection(self, name: str, scenes: Mapping[str, Sequence[Source]]) -> None:
        """Adds a scene collection; its first scene is the program scene.

        Sources are written here, not created by requests, because the module looks for the scenes when the host has
        loaded. The host often leaks or crashes at its end over the sources of other scenes than the program scene,
        unless they hang together with it: therefore it gets them as hidden items, neither seen nor heard.
        """
        program, *others = scenes
        entries = {source.name: source.entry() for sources in scenes.values() for source in sources}
        entries |= {scene: _scene(scene, scenes[scene]) for scene in others}
        shown = {source.name for source in scenes[program]}
        entries[program] = _scene(program, scenes[program], [scene for scene in others if scene not in shown])
        folder = self.config / "basic" / "scenes"
        folder.mkdir(parents=True, exist_ok=True)
        (folder / f"{name}.json").write_text(json.dumps({
            "name": name, "current_scene": program, "current_program_scene": program,
            "scene_order": [{"name": scene} for scene in scenes], "sources": list(entries.values())}))

    def save_vertical_scenes(self, sources: Mapping[str, str], active: str) -> None:
        """Writes the module's scene list: vertical scene name → name of the host scene it shows."""
        keys: dict[str, object] = {"count": len(sources), "activescene": active}
        for index, (scene, source) in enumerate(sources.items()):
            keys |= {f"scene_{index}_name": scene, f"scene_{index}_source": source}
        write_ini(self.module_config / "settings-global.ini", {"Scenes": keys})

    def install_module(self, module: Path) -> None:
        """Puts a build of the module, or its archive, where a user's modules are; any other path stands for a
        module that the machine's own host has."""
        self._plugins.mkdir(exist_ok=True)
        if module.suffix == ".so":
            self._build = module.parents[1]
            subprocess.run(["cmake", "--install", self._build, "--component", "user", "--prefix", self._plugins],
                           check=True, stdout=subprocess.DEVNULL)
        elif module.suffix == ".gz":
            subprocess.run(["tar", "-xzf", module, "-C", self._plugins], check=True)

    def install_driver(self) -> None:
        """The module through which the host is operated, of the same build as the installed module."""
        driver = self._build / "tools/livehost/driver/livehost-driver.so"
        folder = self._plugins / driver.stem / "bin/64bit"
        folder.mkdir(parents=True, exist_ok=True)
        shutil.copy2(driver, folder)

    def remember_choice(self, profile: str, collection: str) -> None:
        """Skips the host's first-run wizard; a used folder keeps its own choices."""
        if not (self.config / "user.ini").exists():
            write_ini(self.config / "user.ini", {
                "General": {"FirstRun": True, "ConfirmOnExit": False, "EnableAutoUpdates": False},
                "Basic": {"Profile": profile, "ProfileDir": profile,
                          "SceneCollection": collection, "SceneCollectionFile": collection},
            })
