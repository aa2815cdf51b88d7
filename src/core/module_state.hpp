// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs-module.h>
#include <util/config-file.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

namespace corvane {

class UserInterface;
class VerticalCanvas;
class VerticalOutput;

struct CanvasFormat {
    uint32_t width = 1080;
    uint32_t height = 1920;
    uint32_t fps_num = 30;
    uint32_t fps_den = 1;
};

// What the module has one of. The pointers own what they point to, but by hand: unloading
// gives everything back, and a static destructor would run after libobs is gone.
struct ModuleState {
    // Guards the runtime and the two config files; taken before the canvas's and the output's
    // locks. Recursive, so that what runs under it may save the settings or the scene list.
    std::recursive_mutex runtime_mutex;

    // The PluginRuntime of the current profile: both set or both null.
    VerticalCanvas *canvas = nullptr;
    VerticalOutput *output = nullptr;
    // What the runtime was last created with.
    CanvasFormat canvas_format;

    // Set while the module is loaded.
    UserInterface *ui = nullptr;

    // Null when not open. The loaders, getters and setters take no lock; they run on the UI
    // thread.
    config_t *global_config = nullptr;
    config_t *profile_config = nullptr;
    // Where each was opened.
    std::string global_config_path;
    std::string profile_config_path;
    // Whether the global file's scene list has been read into a canvas since the file was opened.
    bool scene_list_restored = false;

    bool event_callback_registered = false;
    // Set while a front-end event is being handled.
    std::atomic<bool> in_event_callback = false;

    // The host's handle of this module.
    obs_module_t *module = nullptr;
    lookup_t *locale_lookup = nullptr;
};

extern ModuleState module_state;

} // namespace corvane
