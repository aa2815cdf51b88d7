// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "canvas/canvas_config.hpp"

#include <obs-module.h>
#include <util/config-file.h>

#include <atomic>
#include <mutex>
#include <string>

namespace corvane {

class Hotkeys;
class RemoteControl;
class UserInterface;
class VerticalCanvas;
class VerticalOutput;

inline constexpr const char *kModuleName = "Corvane Vertical Canvas";

// Process-wide state. Raw owning pointers: freed at unload, since static destructors run after
// libobs is gone.
struct ModuleState {
    // Guards the runtime and the two config files; taken before the canvas's and the output's
    // locks. Recursive: code that holds it may save the settings or the scene list.
    std::recursive_mutex runtime_mutex;

    // The PluginRuntime of the current profile: both set or both null.
    VerticalCanvas *canvas = nullptr;
    VerticalOutput *output = nullptr;
    // What the runtime was last created with.
    CanvasConfig canvas_config;

    // Set while the module is loaded.
    UserInterface *ui = nullptr;
    Hotkeys *hotkeys = nullptr;              // to the host's exit event
    RemoteControl *remote_control = nullptr; // from the end of the host's loading to its exit event

    // Null when not open. The loaders, getters and setters take no lock: UI thread only.
    config_t *global_config = nullptr;
    config_t *profile_config = nullptr;
    // The paths they were opened from.
    std::string global_config_path;
    std::string profile_config_path;
    // Whether the scene list has been restored from the global file since it was opened.
    bool scene_list_restored = false;

    bool event_callback_registered = false;
    // Set while a front-end event is being handled.
    std::atomic<bool> in_event_callback = false;

    // The host's handle of this module.
    obs_module_t *module = nullptr;
    lookup_t *locale_lookup = nullptr;
};

inline ModuleState module_state;

} // namespace corvane
