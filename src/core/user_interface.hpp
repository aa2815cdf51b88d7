// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>

namespace corvane {

// What the module shows in the host's main window. Declared here and made in src/ui, so that the
// core needs none of those widgets. UI thread, with runtime_mutex held.
class UserInterface {
public:
    virtual ~UserInterface() = default;

    // Adds the item that opens the settings to the host's Tools menu.
    virtual void add_tools_menu_item() = 0;

    // Creates the dock and hands it to the host; when it exists already, only attaches it.
    virtual void register_dock() = 0;

    // Hand the current runtime to the dock / take it away before it is destroyed, and close the
    // settings of its profile. Nothing happens to a dock that does not exist.
    virtual void attach_dock() = 0;
    virtual void detach_dock() = 0;

    // Writes where the dock is (the DockState keys) into the global config, without saving the
    // file.
    virtual void record_dock_state() = 0;
};

// Destroying it leaves the dock to the host's main window, which owns it.
std::unique_ptr<UserInterface> make_user_interface();

} // namespace corvane
