// SPDX-License-Identifier: GPL-2.0-or-later
// The scene list of the vertical canvas.
#include "canvas/vertical_canvas.hpp"

#include "base/log.hpp"
#include "canvas/cover_placement.hpp"

#include <algorithm>
#include <cstddef>
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

bool VerticalCanvas::assign_scene_source(
    const std::string &scene_name, const std::string &source_name) {
    const std::scoped_lock lock(mutex_);
    const int32_t index = find_scene(scene_name);
    if (index == kNoScene) {
        log_warning("assign_scene_source — scene not found: %s", scene_name.c_str());
        return false;
    }
    VerticalScene &entry = scenes_[index];
    release_source(entry);
    entry.source_name = source_name;

    if (source_name.empty()) {
        place_source(entry, nullptr);
        // The active scene may show the same source, whose marker went with this assignment.
        apply_active_audio();
        log_info("Scene '%s': source cleared", scene_name.c_str());
        return true;
    }
    OBSSourceAutoRelease source = obs_get_source_by_name(source_name.c_str());
    if (!source || obs_source_removed(source)) {
        apply_active_audio();
        // The private scene keeps its old picture, and the name waits for a source that may
        // still come.
        log_warning("assign_scene_source — OBS source not found: %s", source_name.c_str());
        return false;
    }
    take_source(entry, std::move(source));
    return true;
}

void VerticalCanvas::take_source(VerticalScene &entry, OBSSourceAutoRelease source) {
    place_source(entry, source);
    entry.source = std::move(source);
    obs_source_inc_showing(entry.source);
    publish_active_source();
    apply_active_audio();
    log_info("Scene '%s': source assigned → '%s'", entry.name.c_str(), entry.source_name.c_str());
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

std::string VerticalCanvas::current_source_name(const VerticalScene &entry) {
    return entry.source ? obs_source_get_name(entry.source) : entry.source_name;
}

// Who goes through all scenes asks for them in their order: the one after the last found is looked
// at before the search, whose result it cannot change as no two scenes have the same name.
int32_t VerticalCanvas::find_scene(std::string_view name) const {
    if (likely_next_ >= scenes_.size() || scenes_[likely_next_].name != name) {
        const auto found = std::ranges::find(scenes_, name, &VerticalScene::name);
        if (found == scenes_.end()) {
            return kNoScene;
        }
        likely_next_ = static_cast<size_t>(found - scenes_.begin());
    }
    return static_cast<int32_t>(likely_next_++);
}

const VerticalScene *VerticalCanvas::active_scene() const {
    return active_index_ < 0 ? nullptr : &scenes_[active_index_];
}

// Activation changes neither references nor showing counts: every assigned source stays
// "showing", so that switching back is immediate.
void VerticalCanvas::activate(int32_t index) {
    active_index_ = index;
    const VerticalScene *active = active_scene();
    obs_view_set_source(view_.get(), 0, active ? obs_scene_get_source(active->scene) : nullptr);
    publish_active_source();
}

// Takes the items of the chosen sources off the private scene.
void VerticalCanvas::remove_items(
    const VerticalScene &entry, bool (*chosen)(const obs_source_t *)) {
    // An item must not be destroyed under the scene's locks, which the enumeration holds: its
    // texture needs the graphics lock, and rendering takes that one first.
    struct Removal {
        bool (*chosen)(const obs_source_t *);
        std::vector<OBSSceneItem> items;
    } removal{.chosen = chosen, .items = {}};
    const auto remove = [](obs_scene_t *, obs_sceneitem_t *item, void *data) {
        auto *removal = static_cast<Removal *>(data);
        if (removal->chosen(obs_sceneitem_get_source(item))) {
            removal->items.emplace_back(item);
            obs_sceneitem_remove(item);
        }
        return true;
    };
    obs_scene_enum_items(entry.scene, remove, &removal);
}

// Replaces all that the private scene shows by the source, or by nothing. The placement is
// computed from the source's present size and not followed up when that changes.
void VerticalCanvas::place_source(const VerticalScene &entry, obs_source_t *source) const {
    if (!entry.scene) {
        return;
    }
    remove_items(entry, [](const obs_source_t *) { return true; });
    if (!source) {
        return;
    }
    const char *name = obs_source_get_name(source);
    obs_sceneitem_t *item = obs_scene_add(entry.scene, source);
    if (!item) {
        log_warning("obs_scene_add failed for source: %s", name);
        return;
    }
    const uint32_t source_width = obs_source_get_width(source);
    const uint32_t source_height = obs_source_get_height(source);
    const auto [scale, x, y] = cover_placement(width(), height(), source_width, source_height);

    obs_transform_info transform{};
    vec2_set(&transform.pos, x, y);
    vec2_set(&transform.scale, scale, scale);
    transform.alignment = OBS_ALIGN_LEFT | OBS_ALIGN_TOP;
    transform.bounds_type = OBS_BOUNDS_NONE;
    obs_sceneitem_set_info2(item, &transform);
    log_info("Source '%s' placed: src=%ux%u scale=%.4f pos=(%.1f,%.1f)", name, source_width,
        source_height, static_cast<double>(scale), static_cast<double>(x), static_cast<double>(y));
}

} // namespace corvane
