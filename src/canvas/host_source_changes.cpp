// SPDX-License-Identifier: GPL-2.0-or-later
// How the assignments follow the host's sources: one that the host removes is let go, one that
// comes into being under an awaited name is taken, one that is renamed keeps its scene. Without
// this a switch of the scene collection would find its sources still held, and the host would
// stop saving the user's scenes.
#include "canvas/vertical_canvas.hpp"

#include "base/log.hpp"

#include <utility>

namespace corvane {

// What a task may still hold when the canvas is gone.
struct VerticalCanvas::Link {
    explicit Link(VerticalCanvas *owner)
        : canvas(owner) {}

    std::mutex mutex; // taken before the canvas's
    VerticalCanvas *canvas;
};

void VerticalCanvas::follow_host_sources_from_now() {
    link_ = std::make_shared<Link>(this);
    signal_handler_t *host = obs_get_signal_handler();
    source_created_.Connect(host, "source_create", on_host_sources_changed, this);
    source_removed_.Connect(host, "source_remove", on_host_sources_changed, this);
    source_renamed_.Connect(host, "source_rename", on_host_sources_changed, this);
}

void VerticalCanvas::follow_host_sources_no_more() {
    source_created_.Disconnect();
    source_removed_.Disconnect();
    source_renamed_.Disconnect();
    if (link_) {
        const std::scoped_lock lock(link_->mutex);
        link_->canvas = nullptr;
    }
}

// The host may emit these with its list of sources locked, and destroying things under that lock
// can deadlock with rendering. libobs's thread for destructions holds nothing, and the host waits
// for it before it looks whether all sources are gone.
void VerticalCanvas::on_host_sources_changed(void *canvas, calldata_t *) {
    auto *link = new std::shared_ptr<Link>(static_cast<VerticalCanvas *>(canvas)->link_);
    // On that thread itself a task runs at once, inside what emits the signal; that can be a
    // handler called by follow_host_sources(). The host waits for the graphics thread's tasks, too.
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
            // The picture of the last assignment may still be there.
            remove_items(entry, obs_source_removed);
            take_awaited_source(entry);
        } else if (obs_source_removed(entry.source)) {
            release_source(entry);
            place_source(entry, nullptr);
            // The name stays, for a source that may come again.
            log_info("Scene '%s': source '%s' was removed from the host", entry.name.c_str(),
                entry.source_name.c_str());
        } else if (std::string name = current_source_name(entry); entry.source_name != name) {
            entry.source_name = std::move(name);
            ++source_renames_;
        }
    }
}

void VerticalCanvas::take_awaited_source(VerticalScene &entry) {
    if (entry.source_name.empty()) {
        return;
    }
    OBSSourceAutoRelease source = obs_get_source_by_name(entry.source_name.c_str());
    if (source && !obs_source_removed(source)) {
        take_source(entry, std::move(source));
    }
}

} // namespace corvane
