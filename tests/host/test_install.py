# SPDX-License-Identifier: GPL-2.0-or-later
"""What ./dev install puts among a user's own modules."""

import json
import os
import re
import shutil
import subprocess
from pathlib import Path

from host_fixture import HostFixture

PROJECT = Path(__file__).resolve().parents[2]


def test_installs_for_one_user(setup: HostFixture) -> None:
    """A module that the host does not find or name, and files that stay behind."""
    folder = setup.folder.config / "plugins/corvane-vertical-canvas"
    shutil.rmtree(folder)

    def dev(command: str) -> None:
        subprocess.run([PROJECT / "dev", command], env=os.environ | {"XDG_CONFIG_HOME": str(setup.folder.root)},
                       check=True, timeout=300)

    dev("install")
    manifest = json.loads((folder / "data/manifest.json").read_text())
    with setup.host() as host:
        assert re.search(rf"Loading version {re.escape(manifest['version'])}$", host.log(), re.MULTILINE)
    dev("uninstall")
    assert not folder.exists()
    with setup.host() as host:
        assert "corvane-obs-vertical" not in host.log()
