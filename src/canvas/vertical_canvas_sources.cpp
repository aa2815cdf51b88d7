// SPDX-License-Identifier: GPL-2.0-or-later
// The host sources assigned to vertical scenes: assigning, placing, the audio marker, and following
// what the host does to them. A removed source is released, one created under an awaited name is
// assigned, a renamed one keeps its scene. Otherwise a switch of the scene collection would find
// its sources still held, and the host would stop saving the user's scenes.
#include "canvas/vertical_canvas.hpp"

#include "base/log.hpp"

#include <utility>

namespace corvane {

namespace {

// The host's sixth audio track. The only mixer bit the canvas changes, and only on assigned
// sources.
constexpr uint32_t kActiveAudioMixer = 1U << 5;

void add_marker(obs_source_t *source) {
    const uint32_t mixers = obs_source_get_audio_mixers(source);
    if ((mixers & kActiveAudioMixer) == 0) {
        obs_source_set_audio_mixers(source, mixers | kActiveAudioMixer);
    }
}

void remove_marker(obs_source_t *source) {
    const uint32_t mixers = obs_source_get_audio_mixers(source);
    if ((mixers & kActiveAudioMixer) != 0) {
        obs_source_set_audio_mixers(source, mixers & ~kActiveAudioMixer);
    }
}

} // namespace

// Lets a queued task find out that the canvas is gone.
struct VerticalCanvas::Link {
    explicit Link(VerticalCanvas *owner)
        : canvas(owner) {}

    std::mutex mutex; // taken before the canvas's
    VerticalCanvas *canvas;
};

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
        // The active scene may show the same source, whose marker release_source() has removed.
        apply_active_audio();
        log_info("Scene '%s': source cleared", scene_name.c_str());
        return true;
    }
    OBSSourceAutoRelease source = obs_get_source_by_name(source_name.c_str());
    if (!source || obs_source_removed(source)) {
        apply_active_audio();
        // The private scene keeps its old item; the name is kept for a source created later.
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

std::string VerticalCanvas::current_source_name(const VerticalScene &entry) {
    return entry.source ? obs_source_get_name(entry.source) : entry.source_name;
}

// Removes the items of the chosen sources from the private scene.
void VerticalCanvas::remove_items(
    const VerticalScene &entry, bool (*chosen)(const obs_source_t *)) {
    // Items must not be destroyed under the scene's locks, which the enumeration holds: their
    // textures need the graphics lock, which rendering takes first.
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

// Replaces the private scene's items by the source, or by nothing. The placement uses the source's
// current size and is not updated when that changes.
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

// Every path that drops a source from a scene ends here. Removes the marker even if the option is
// off, so that the source's mixers are left as the user set them.
void VerticalCanvas::release_source(VerticalScene &entry) {
    const OBSSourceAutoRelease source = std::move(entry.source);
    if (!source) {
        return;
    }
    entry.source_name = obs_source_get_name(source);
    remove_marker(source);
    obs_source_dec_showing(source);

    // A draw callback that has read the old pointer runs inside the graphics context: once this
    // thread has been in there, the reference can be released.
    publish_active_source();
    obs_enter_graphics();
    obs_leave_graphics();
}

void VerticalCanvas::publish_active_source() {
    const VerticalScene *active = active_scene();
    active_source_ = active ? active->source.Get() : nullptr;
}

void VerticalCanvas::clear_active_audio() {
    if (!config_.use_active_scene_audio) {
        return;
    }
    for (const VerticalScene &entry : scenes_) {
        if (entry.source) {
            remove_marker(entry.source);
        }
    }
}

void VerticalCanvas::apply_active_audio() {
    if (!config_.use_active_scene_audio) {
        return;
    }
    clear_active_audio();
    const VerticalScene *active = active_scene();
    if (active && active->source) {
        add_marker(active->source);
    }
}

void VerticalCanvas::connect_source_signals() {
    link_ = std::make_shared<Link>(this);
    signal_handler_t *host = obs_get_signal_handler();
    source_created_.Connect(host, "source_create", on_host_sources_changed, this);
    source_removed_.Connect(host, "source_remove", on_host_sources_changed, this);
    source_renamed_.Connect(host, "source_rename", on_host_sources_changed, this);
}

void VerticalCanvas::disconnect_source_signals() {
    source_created_.Disconnect();
    source_removed_.Disconnect();
    source_renamed_.Disconnect();
    if (link_) {
        const std::scoped_lock lock(link_->mutex);
        link_->canvas = nullptr;
    }
}

// The host may emit these with its source list locked, and destroying sources under that lock can
// deadlock with rendering. libobs's destruction thread holds no lock, and the host waits for it
// before it checks whether all sources are gone.
void VerticalCanvas::on_host_sources_changed(void *canvas, calldata_t *) {
    auto *link = new std::shared_ptr<Link>(static_cast<VerticalCanvas *>(canvas)->link_);
    // On that thread libobs would run the task immediately, possibly inside follow_host_sources().
    // The host waits for the graphics thread's tasks, too.
    if (obs_in_task_thread(OBS_TASK_DESTROY)) {
        obs_queue_task(OBS_TASK_GRAPHICS, queue_follow_task, link, false);
    } else {
        queue_follow_task(link);
    }
}

void VerticalCanvas::queue_follow_task(void *link) {
    obs_queue_task(OBS_TASK_DESTROY, follow_task, link, false);
}

void VerticalCanvas::follow_task(void *owned_link) {
    const std::unique_ptr<std::shared_ptr<Link>> link(
        static_cast<std::shared_ptr<Link> *>(owned_link));
    const std::scoped_lock lock((*link)->mutex);
    if ((*link)->canvas) {
        (*link)->canvas->follow_host_sources();
    }
}

void VerticalCanvas::follow_host_sources() {
    const std::scoped_lock lock(mutex_);
    for (VerticalScene &entry : scenes_) {
        if (!entry.source) {
            // The item of the last assignment may still be there.
            remove_items(entry, obs_source_removed);
            assign_awaited_source(entry);
        } else if (obs_source_removed(entry.source)) {
            release_source(entry);
            place_source(entry, nullptr);
            // The name is kept for a source created later.
            log_info("Scene '%s': source '%s' was removed from the host", entry.name.c_str(),
                entry.source_name.c_str());
            ++source_changes_;
        } else if (std::string name = current_source_name(entry); entry.source_name != name) {
            entry.source_name = std::move(name);
            ++source_renames_;
        }
    }
}

void VerticalCanvas::assign_awaited_source(VerticalScene &entry) {
    if (entry.source_name.empty()) {
        return;
    }
    OBSSourceAutoRelease source = obs_get_source_by_name(entry.source_name.c_str());
    if (source && !obs_source_removed(source)) {
        take_source(entry, std::move(source));
        ++source_changes_;
    }
}

} // namespace corvane
