// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>

namespace corvane {

// What the module shows in the host's main window. Implemented in src/ui, so that the core does not
// depend on the widgets. UI thread, with runtime_mutex held.
class UserInterface {
public:
    virtual ~UserInterface() = default;

    // Adds the item that opens the settings to the host's Tools menu.
    virtual void add_tools_menu_item() = 0;

    // Creates the dock and registers it with the host; only attaches it if it already exists.
    virtual void register_dock() = 0;

    // Hands the current runtime to the dock, if there is one.
    virtual void attach_dock() = 0;

    // Takes the runtime away from the dock, before it is destroyed.
    virtual void detach_dock() = 0;

    // Closes an open settings dialog unsaved, before its profile's file is closed.
    virtual void close_settings() = 0;

    // Writes the dock's placement (DockState) into the global config without saving the file.
    virtual void record_dock_state() = 0;
};

// The dock outlives it: the host's main window owns the dock.
std::unique_ptr<UserInterface> make_user_interface();

} // namespace corvane
