// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "base/obs_handles.hpp"

#include <obs.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace corvane {

// The module's hotkeys, which the host's settings list as its own: start and stop of the vertical
// stream, next and previous vertical scene, and one for each scene. Their bindings are kept in
// "hotkeys.json" in the module's config folder, those of a scene under its name.
//
// libobs calls back on any thread, with its hotkey lock held; all work is queued to the UI thread.
// UI thread only.
class Hotkeys {
public:
    // Registers all but the scenes', with their saved bindings.
    Hotkeys();
    ~Hotkeys();
    Hotkeys(const Hotkeys &) = delete;
    Hotkeys &operator=(const Hotkeys &) = delete;

    // To be called after each change of the scene list. A scene that was renamed in its place keeps
    // its hotkey.
    void follow_scenes(const std::vector<std::string> &names);

    // Saves the bindings. Changes save themselves, soon; to be called when the host exits.
    void save() const;

    // The scene of a hotkey; empty for none.
    std::string scene_of(obs_hotkey_id id) const;

private:
    struct SceneHotkey {
        std::string scene;
        obs_hotkey_id id;
    };

    bool follow_rename(const std::vector<std::string> &names);
    SceneHotkey register_scene(const std::string &name) const;
    void load();
    void queue_save();
    static void on_bindings_changed(void *hotkeys, calldata_t *);

    obs_hotkey_pair_id stream_;
    obs_hotkey_id next_;
    obs_hotkey_id previous_;
    std::vector<SceneHotkey> scenes_; // in the order of the list
    bool scenes_known_ = false;       // else the file's bindings of scenes stay as they are
    OBSDataAutoRelease loaded_;       // never null
    OBSSignal bindings_changed_;
    std::atomic<bool> save_queued_ = false;
};

} // namespace corvane
