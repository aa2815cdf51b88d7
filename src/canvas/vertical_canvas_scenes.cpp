// SPDX-License-Identifier: GPL-2.0-or-later
// The scene list of the vertical canvas.
#include "canvas/vertical_canvas.hpp"

#include "base/log.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

namespace corvane {

bool VerticalCanvas::create_scene(const std::string &name) {
    const std::scoped_lock lock(mutex_);
    return create_scene_unlocked(name);
}

bool VerticalCanvas::create_scene_unlocked(const std::string &name) {
    if (find_scene(name) != kNoScene) {
        log_warning("Scene already exists: %s", name.c_str());
        return false;
    }
    OBSSceneAutoRelease scene = obs_scene_create_private(name.c_str());
    if (!scene) {
        log_error("obs_scene_create_private failed for: %s", name.c_str());
        return false;
    }
    scenes_.push_back({.name = name, .source_name = {}, .scene = std::move(scene), .source = {}});
    if (active_index_ < 0) {
        activate(static_cast<int32_t>(scenes_.size()) - 1);
    }
    log_info("Scene created (private): %s", name.c_str());
    return true;
}

bool VerticalCanvas::remove_scene(const std::string &name) {
    const std::scoped_lock lock(mutex_);
    const int32_t index = find_scene(name);
    if (index == kNoScene) {
        log_warning("remove_scene — not found: %s", name.c_str());
        return false;
    }
    if (index == active_index_) {
        activate(kNoScene);
    }
    release_source(scenes_[index]);
    scenes_.erase(scenes_.begin() + index);
    if (active_index_ > index) {
        --active_index_;
    }
    if (active_index_ < 0 && !scenes_.empty()) {
        activate(0);
    }
    apply_active_audio();
    log_info("Scene removed: %s", name.c_str());
    return true;
}

bool VerticalCanvas::rename_scene(const std::string &old_name, const std::string &new_name) {
    const std::scoped_lock lock(mutex_);
    if (old_name == new_name) {
        return true;
    }
    if (find_scene(new_name) != kNoScene) {
        log_warning("rename_scene — name already in use: %s", new_name.c_str());
        return false;
    }
    const int32_t index = find_scene(old_name);
    if (index == kNoScene) {
        log_warning("rename_scene — not found: %s", old_name.c_str());
        return false;
    }
    VerticalScene &entry = scenes_[index];
    obs_source_set_name(obs_scene_get_source(entry.scene), new_name.c_str());
    entry.name = new_name;
    log_info("Scene renamed: %s -> %s", old_name.c_str(), new_name.c_str());
    return true;
}

bool VerticalCanvas::set_active_scene(const std::string &name) {
    const std::scoped_lock lock(mutex_);
    const int32_t index = find_scene(name);
    if (index == kNoScene) {
        log_warning("set_active_scene — not found: %s", name.c_str());
        return false;
    }
    if (index == active_index_) {
        return true;
    }
    activate(index);
    apply_active_audio();
    log_info("Active scene: %s", name.c_str());
    return true;
}

std::vector<SceneInfo> VerticalCanvas::scene_list() const {
    const std::scoped_lock lock(mutex_);
    std::vector<SceneInfo> scenes;
    scenes.reserve(scenes_.size());
    for (const VerticalScene &entry : scenes_) {
        const std::string source_name = current_source_name(entry);
        scenes.push_back({.name = entry.name,
            .source_name = source_name,
            .source_missing = !entry.source && !source_name.empty()});
    }
    return scenes;
}

std::vector<std::string> VerticalCanvas::scene_names() const {
    const std::scoped_lock lock(mutex_);
    std::vector<std::string> names;
    names.reserve(scenes_.size());
    std::ranges::transform(scenes_, std::back_inserter(names), &VerticalScene::name);
    return names;
}

std::string VerticalCanvas::active_scene_name() const {
    const std::scoped_lock lock(mutex_);
    const VerticalScene *active = active_scene();
    return active ? active->name : std::string();
}

std::string VerticalCanvas::scene_source_name(const std::string &scene_name) const {
    const std::scoped_lock lock(mutex_);
    const int32_t index = find_scene(scene_name);
    return index == kNoScene ? std::string() : current_source_name(scenes_[index]);
}

int32_t VerticalCanvas::find_scene(std::string_view name) const {
    const auto found = std::ranges::find(scenes_, name, &VerticalScene::name);
    return found == scenes_.end() ? kNoScene : static_cast<int32_t>(found - scenes_.begin());
}

const VerticalScene *VerticalCanvas::active_scene() const {
    return active_index_ < 0 ? nullptr : &scenes_[active_index_];
}

// Changes neither references nor showing counts: every assigned source stays "showing", so that
// switching back is immediate.
void VerticalCanvas::activate(int32_t index) {
    active_index_ = index;
    const VerticalScene *active = active_scene();
    obs_view_set_source(view_.get(), 0, active ? obs_scene_get_source(active->scene) : nullptr);
    publish_active_source();
}

} // namespace corvane
