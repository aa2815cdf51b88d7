// SPDX-License-Identifier: GPL-2.0-or-later
#include "core/hotkeys.hpp"

#include "base/log.hpp"
#include "canvas/vertical_canvas.hpp"
#include "core/config_files.hpp"
#include "core/module_state.hpp"
#include "core/user_interface.hpp"
#include "mux/output_type.hpp"
#include "output/vertical_output.hpp"

#include <QCoreApplication>
#include <QMetaObject>

#include <algorithm>
#include <cstring>
#include <utility>

namespace corvane {

namespace {

constexpr const char *kStart = "CorvaneVertical.StartStream";
constexpr const char *kStop = "CorvaneVertical.StopStream";
constexpr const char *kNext = "CorvaneVertical.NextScene";
constexpr const char *kPrevious = "CorvaneVertical.PreviousScene";
constexpr const char *kScenes = "scenes"; // an object of the file, by scene name

std::string hotkey_name(const std::string &scene) {
    return "CorvaneVertical.Scene." + scene;
}

std::string hotkey_description(const std::string &scene) {
    return "Switch to vertical scene '" + scene + "'";
}

std::string file_path() {
    const HostString path(obs_module_get_config_path(module_state.module, "hotkeys.json"));
    return path ? path.get() : std::string();
}

// Runs the work on the UI thread, later, with runtime_mutex held, if there is a runtime by then.
template <typename Work>
void queue(Work work) {
    const auto run = [work] {
        const std::scoped_lock lock(module_state.runtime_mutex);
        if (module_state.canvas && module_state.output) {
            work(*module_state.canvas, *module_state.output);
        }
    };
    QMetaObject::invokeMethod(QCoreApplication::instance(), run, Qt::QueuedConnection);
}

// Asks libobs: runtime_mutex must not be taken below libobs's hotkey lock.
bool stream_active() {
    bool active = false;
    const auto look = [](void *found, obs_output_t *output) {
        const char *type = obs_output_get_id(output);
        const bool ours =
            std::strcmp(type, kMuxOutputId) == 0 || std::strcmp(type, kResilientOutputId) == 0;
        *static_cast<bool *>(found) |= ours && obs_output_active(output);
        return true;
    };
    obs_enum_outputs(look, &active);
    return active;
}

// Like the host's own pair: a key bound to both starts or stops, whichever is possible.
bool on_start(void *, obs_hotkey_pair_id, obs_hotkey_t *, bool pressed) {
    if (!pressed || stream_active()) {
        return false;
    }
    queue([](VerticalCanvas &, VerticalOutput &output) { output.start(); });
    return true;
}

bool on_stop(void *, obs_hotkey_pair_id, obs_hotkey_t *, bool pressed) {
    if (!pressed || !stream_active()) {
        return false;
    }
    queue([](VerticalCanvas &, VerticalOutput &output) { output.stop(); });
    return true;
}

void activate(VerticalCanvas &canvas, const std::string &scene) {
    if (canvas.set_active_scene(scene) && module_state.ui) {
        module_state.ui->attach_dock();
    }
}

void step(VerticalCanvas &canvas, size_t forward) {
    const std::vector<std::string> names = canvas.scene_names();
    const auto active = std::ranges::find(names, canvas.active_scene_name());
    if (active != names.end()) {
        const size_t position = active - names.begin();
        activate(canvas, names[(position + forward) % names.size()]);
    }
}

void on_next(void *, obs_hotkey_id, obs_hotkey_t *, bool pressed) {
    if (pressed) {
        queue([](VerticalCanvas &canvas, VerticalOutput &) { step(canvas, 1); });
    }
}

void on_previous(void *, obs_hotkey_id, obs_hotkey_t *, bool pressed) {
    if (pressed) {
        queue([](VerticalCanvas &canvas, VerticalOutput &) {
            step(canvas, canvas.scene_names().size() - 1);
        });
    }
}

void on_scene(void *, obs_hotkey_id id, obs_hotkey_t *, bool pressed) {
    if (pressed) {
        queue([id](VerticalCanvas &canvas, VerticalOutput &) {
            activate(canvas, module_state.hotkeys ? module_state.hotkeys->scene_of(id) : "");
        });
    }
}

void load_bindings(obs_hotkey_id id, obs_data_t *bindings, const char *name) {
    const OBSDataArrayAutoRelease keys = obs_data_get_array(bindings, name);
    obs_hotkey_load(id, keys);
}

void save_bindings(obs_hotkey_id id, obs_data_t *bindings, const char *name) {
    const OBSDataArrayAutoRelease keys = obs_hotkey_save(id);
    obs_data_set_array(bindings, name, keys);
}

// Not as pair 0, the first of all: a host without a virtual camera may unregister that one, as if
// it were the camera's, with every switch of the profile.
obs_hotkey_pair_id register_stream_pair() {
    const auto add = [] {
        return obs_hotkey_pair_register_frontend(kStart, "Start vertical stream", kStop,
            "Stop vertical stream", on_start, on_stop, nullptr, nullptr);
    };
    const obs_hotkey_pair_id id = add();
    if (id != 0) {
        return id;
    }
    obs_hotkey_pair_unregister(id);
    return add();
}

} // namespace

Hotkeys::Hotkeys()
    : stream_(register_stream_pair())
    , next_(obs_hotkey_register_frontend(kNext, "Next vertical scene", on_next, nullptr))
    , previous_(obs_hotkey_register_frontend(
          kPrevious, "Previous vertical scene", on_previous, nullptr)) {
    load();
    bindings_changed_.Connect(
        obs_get_signal_handler(), "hotkey_bindings_changed", on_bindings_changed, this);
}

// Saves nothing: at unload libobs has already forgotten all bindings.
Hotkeys::~Hotkeys() {
    bindings_changed_.Disconnect();
    obs_hotkey_pair_unregister(stream_);
    obs_hotkey_unregister(next_);
    obs_hotkey_unregister(previous_);
    for (const SceneHotkey &hotkey : scenes_) {
        obs_hotkey_unregister(hotkey.id);
    }
}

void Hotkeys::load() {
    loaded_ = obs_data_create_from_json_file_safe(file_path().c_str(), "bak");
    if (!loaded_) {
        loaded_ = obs_data_create();
    }
    const OBSDataArrayAutoRelease start = obs_data_get_array(loaded_, kStart);
    const OBSDataArrayAutoRelease stop = obs_data_get_array(loaded_, kStop);
    obs_hotkey_pair_load(stream_, start, stop);
    load_bindings(next_, loaded_, kNext);
    load_bindings(previous_, loaded_, kPrevious);
}

void Hotkeys::save() const {
    const OBSDataAutoRelease bindings = obs_data_create();
    obs_data_array_t *start = nullptr;
    obs_data_array_t *stop = nullptr;
    obs_hotkey_pair_save(stream_, &start, &stop);
    obs_data_set_array(bindings, kStart, start);
    obs_data_set_array(bindings, kStop, stop);
    obs_data_array_release(start);
    obs_data_array_release(stop);
    save_bindings(next_, bindings, kNext);
    save_bindings(previous_, bindings, kPrevious);
    const OBSDataAutoRelease scenes =
        scenes_known_ ? obs_data_create() : obs_data_get_obj(loaded_, kScenes);
    for (const SceneHotkey &hotkey : scenes_) {
        save_bindings(hotkey.id, scenes, hotkey.scene.c_str());
    }
    obs_data_set_obj(bindings, kScenes, scenes);
    const std::string path = file_path();
    if (!has_room_for(path) || !obs_data_save_json_safe(bindings, path.c_str(), "tmp", "bak")) {
        log_warning("Failed to save hotkeys");
    }
}

// libobs emits this for any hotkey, with its hotkey lock held, and once for each of them when the
// host applies its settings.
void Hotkeys::on_bindings_changed(void *hotkeys, calldata_t *) {
    static_cast<Hotkeys *>(hotkeys)->queue_save();
}

void Hotkeys::queue_save() {
    if (save_queued_.exchange(true)) {
        return;
    }
    const auto save = [] {
        if (Hotkeys *const own = module_state.hotkeys) {
            own->save_queued_ = false;
            own->save();
        }
    };
    QMetaObject::invokeMethod(QCoreApplication::instance(), save, Qt::QueuedConnection);
}

Hotkeys::SceneHotkey Hotkeys::register_scene(const std::string &name) const {
    const obs_hotkey_id id = obs_hotkey_register_frontend(
        hotkey_name(name).c_str(), hotkey_description(name).c_str(), on_scene, nullptr);
    const OBSDataAutoRelease saved = obs_data_get_obj(loaded_, kScenes);
    load_bindings(id, saved, name.c_str());
    if (saved) {
        obs_data_erase(saved, name.c_str()); // not for a later scene of that name
    }
    return {.scene = name, .id = id};
}

bool Hotkeys::follow_rename(const std::vector<std::string> &names) {
    if (names.size() != scenes_.size()) {
        return false;
    }
    const auto [renamed, name] = std::ranges::mismatch(scenes_, names, {}, &SceneHotkey::scene);
    if (renamed == scenes_.end() || !std::ranges::equal(renamed + 1, scenes_.end(), name + 1,
                                        names.end(), {}, &SceneHotkey::scene)) {
        return false;
    }
    renamed->scene = *name;
    obs_hotkey_set_name(renamed->id, hotkey_name(*name).c_str());
    obs_hotkey_set_description(renamed->id, hotkey_description(*name).c_str());
    return true;
}

void Hotkeys::follow_scenes(const std::vector<std::string> &names) {
    scenes_known_ = true;
    queue_save();
    if (follow_rename(names)) {
        return;
    }
    std::vector<SceneHotkey> scenes;
    for (const std::string &name : names) {
        const auto known = std::ranges::find(scenes_, name, &SceneHotkey::scene);
        scenes.push_back(known == scenes_.end() ? register_scene(name) : *known);
    }
    for (const SceneHotkey &hotkey : scenes_) {
        if (std::ranges::find(names, hotkey.scene) == names.end()) {
            obs_hotkey_unregister(hotkey.id);
        }
    }
    scenes_ = std::move(scenes);
}

std::string Hotkeys::scene_of(obs_hotkey_id id) const {
    const auto found = std::ranges::find(scenes_, id, &SceneHotkey::id);
    return found == scenes_.end() ? std::string() : found->scene;
}

} // namespace corvane
