// SPDX-License-Identifier: GPL-2.0-or-later
#include "core/scene_list_store.hpp"

#include "base/log.hpp"
#include "canvas/vertical_canvas.hpp"
#include "core/config_files.hpp"
#include "core/hotkeys.hpp"
#include "core/module_state.hpp"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace corvane {

namespace {

constexpr const char *kSection = "Scenes";
constexpr const char *kCount = "count";
constexpr const char *kActiveScene = "activescene";
// More scenes than anyone has: a damaged count must not delay the host's start.
constexpr uint64_t kMaxPositions = 100'000;

// The keys of one position in the list, from 0.
struct SceneKeys {
    explicit SceneKeys(uint64_t position)
        : name("scene_" + std::to_string(position) + "_name")
        , source("scene_" + std::to_string(position) + "_source") {}

    std::string name;
    std::string source;
};

const char *read_string(const std::string &key) {
    return config_get_string(module_state.global_config, kSection, key.c_str());
}

void write_string(const std::string &key, const std::string &value) {
    config_set_string(module_state.global_config, kSection, key.c_str(), value.c_str());
}

uint64_t stored_count() {
    return config_get_uint(module_state.global_config, kSection, kCount);
}

bool has_text(const char *text) {
    return text && *text;
}

// The canvas refuses a duplicate name; its source is assigned nevertheless.
void restore_position(uint64_t position) {
    const SceneKeys keys(position);
    const char *name = read_string(keys.name);
    const char *source = read_string(keys.source);
    if (!has_text(name)) {
        return;
    }
    module_state.canvas->create_scene(name);
    if (has_text(source)) {
        module_state.canvas->assign_scene_source(name, source);
    }
}

} // namespace

// Keys from the new count on stay in the file: only positions below the count are read.
void save_scene_list() {
    const VerticalCanvas *canvas = module_state.canvas;
    if (!module_state.global_config || !canvas) {
        return;
    }
    // A host that fails before it has loaded its scenes unloads the module with only the default
    // scene.
    if (!module_state.scene_list_restored && stored_count() != 0) {
        return;
    }
    const std::vector<SceneInfo> scenes = canvas->scene_list();
    config_set_uint(module_state.global_config, kSection, kCount, scenes.size());
    write_string(kActiveScene, canvas->active_scene_name());
    for (size_t position = 0; position < scenes.size(); ++position) {
        const SceneKeys keys(position);
        write_string(keys.name, scenes[position].name);
        write_string(keys.source, scenes[position].source_name);
    }
    save_global_file();
    log_info("Scene list saved (%zu scene(s))", scenes.size());
}

void save_scene_list_locked() {
    const std::scoped_lock lock(module_state.runtime_mutex);
    save_scene_list();
    follow_scenes_with_hotkeys();
}

void follow_scenes_with_hotkeys() {
    if (module_state.hotkeys && module_state.canvas) {
        module_state.hotkeys->follow_scenes(module_state.canvas->scene_names());
    }
}

void restore_scene_list() {
    VerticalCanvas *canvas = module_state.canvas;
    if (!module_state.global_config || !canvas) {
        return;
    }
    module_state.scene_list_restored = true;
    const uint64_t count = stored_count();
    if (count == 0) {
        log_info("No saved scenes — keeping default Scene 1");
        return;
    }
    // Even if the list has a scene of that name: it is created again in its place.
    canvas->remove_scene(VerticalCanvas::kDefaultScene);
    for (uint64_t position = 0; position < std::min(count, kMaxPositions); ++position) {
        restore_position(position);
    }
    const char *active = read_string(kActiveScene);
    if (has_text(active)) {
        canvas->set_active_scene(active);
    }
    log_info("Restored %llu scene(s), active: %s", static_cast<unsigned long long>(count),
        active ? active : "(none)");
}

void reapply_scene_sources() {
    VerticalCanvas *canvas = module_state.canvas;
    if (!canvas) {
        return;
    }
    for (const std::string &name : canvas->scene_names()) {
        const std::string source = canvas->scene_source_name(name);
        if (!source.empty()) {
            log_info("Re-applying source '%s' → scene '%s'", source.c_str(), name.c_str());
            canvas->assign_scene_source(name, source);
        }
    }
}

} // namespace corvane
