// SPDX-License-Identifier: GPL-2.0-or-later
#include "core/frontend_events.hpp"

#include "base/log.hpp"
#include "base/obs_handles.hpp"
#include "canvas/vertical_canvas.hpp"
#include "core/config_files.hpp"
#include "core/hotkeys.hpp"
#include "core/module_state.hpp"
#include "core/plugin_settings.hpp"
#include "core/remote_control.hpp"
#include "core/runtime.hpp"
#include "core/user_interface.hpp"
#include "output/vertical_output.hpp"

#include <obs-frontend-api.h>

#include <QCoreApplication>
#include <QMessageBox>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace corvane {

namespace {

bool output_active() {
    return module_state.output && module_state.output->is_active();
}

void on_streaming_starting() {
    if (settings::autostartwithmain.get() && module_state.output && !output_active()) {
        log_info("Main stream starting — auto-starting vertical output");
        module_state.output->start();
    }
}

// The vertical stream ends with the main one, even if it was started by hand.
void on_streaming_stopped() {
    if (output_active()) {
        log_info("Main stream stopped — stopping vertical output");
        module_state.output->stop();
    }
}

// Queued: a modal box here would run the event loop with the lock held.
void show_rebuild_failure() {
    const auto show = [] {
        QMessageBox::information(nullptr, QString::fromUtf8(kModuleName),
            QStringLiteral("Failed to rebuild the vertical canvas after profile switch.\n\n"
                           "Restart OBS before using the vertical output again."),
            QMessageBox::Ok);
    };
    QMetaObject::invokeMethod(QCoreApplication::instance(), show, Qt::QueuedConnection);
}

// The host resets its video before it reports the changed profile, but not while an output is
// active: its main canvas would keep the old profile's size.
void on_profile_changing() {
    if (output_active() && module_state.output->resilient()) {
        log_info("OBS profile changing — stopping vertical output");
        module_state.output->stop_and_release();
    }
}

// Restores the scenes saved from the old profile's canvas into the new one. Closes the old
// profile's file without saving.
void on_profile_changed() {
    log_info("OBS profile changed — rebuilding profile-specific runtime");
    log_info("Profile change — rebuilding vertical runtime");
    module_state.ui->close_settings();
    destroy_runtime(/*save_scenes=*/true);
    load_profile_config();
    if (!create_and_show_runtime()) {
        log_error("Failed to rebuild vertical runtime after profile change");
        show_rebuild_failure();
    }
}

// In studio mode, too, this is the program's scene, not the preview's.
void on_program_scene_changed() {
    if (!module_state.canvas || !settings::followprogram.get()) {
        return;
    }
    const OBSSourceAutoRelease program = obs_frontend_get_current_scene();
    if (!program) {
        return;
    }
    const std::vector<SceneInfo> scenes = module_state.canvas->scene_list();
    const std::string name = obs_source_get_name(program);
    const auto shows_it = std::ranges::find(scenes, name, &SceneInfo::source_name);
    if (shows_it != scenes.end()) {
        module_state.canvas->set_active_scene(shows_it->name);
        module_state.ui->attach_dock();
    }
}

void on_finished_loading() {
    show_runtime();
    if (!module_state.remote_control) {
        module_state.remote_control = new RemoteControl;
    }
}

void on_exit() {
    // A request would wait for this thread, which soon waits for obs-websocket.
    delete std::exchange(module_state.remote_control, nullptr);
    module_state.ui->record_dock_state();
    if (module_state.hotkeys) {
        // Before libobs forgets the bindings; and no key starts a stream any more.
        module_state.hotkeys->save();
        delete std::exchange(module_state.hotkeys, nullptr);
    }
    if (output_active()) {
        log_info("OBS exiting — stopping vertical output");
        module_state.output->stop();
    }
}

void handle(obs_frontend_event event) {
    switch (event) {
    case OBS_FRONTEND_EVENT_STREAMING_STARTING:
        on_streaming_starting();
        break;
    case OBS_FRONTEND_EVENT_STREAMING_STOPPED:
        on_streaming_stopped();
        break;
    case OBS_FRONTEND_EVENT_PROFILE_CHANGING:
        on_profile_changing();
        break;
    case OBS_FRONTEND_EVENT_PROFILE_CHANGED:
        on_profile_changed();
        break;
    case OBS_FRONTEND_EVENT_SCENE_CHANGED:
        on_program_scene_changed();
        break;
    case OBS_FRONTEND_EVENT_EXIT:
        on_exit();
        break;
    case OBS_FRONTEND_EVENT_FINISHED_LOADING:
        on_finished_loading();
        break;
    default:
        break;
    }
}

} // namespace

void on_frontend_event(obs_frontend_event event, void *) {
    if (module_state.in_event_callback.exchange(true)) {
        return;
    }
    {
        const std::scoped_lock lock(module_state.runtime_mutex);
        handle(event);
    }
    // Only after the lock has been released.
    module_state.in_event_callback = false;
}

} // namespace corvane
