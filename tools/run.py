# SPDX-License-Identifier: GPL-2.0-or-later
"""The host with the module in a window on the user's own screen, until it is closed.

Its configuration lives in build/run-config and is kept from run to run; delete the folder to
begin afresh.
"""

import sys
from pathlib import Path

from livehost.folder import HostFolder, Profile, built_module
from livehost.host import LiveHost
from livehost.scene import busy_sources
from livehost.screen import user_screen

folder = HostFolder(Path(__file__).resolve().parents[1] / "build" / "run-config")
if not folder.profile_folder("run").exists():
    folder.add_collection("run", {"Stage": busy_sources(folder.root)})
    folder.add_profile(Profile("run"))
folder.install_module(built_module())
host = LiveHost(folder, user_screen(), "run", "run")
host.start()
print(f"The host runs with the configuration in {folder.root}; close its window to end.", flush=True)
sys.exit(host.process.wait())
