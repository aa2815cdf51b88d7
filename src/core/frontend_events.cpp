// SPDX-License-Identifier: GPL-2.0-or-later
#include "core/frontend_events.hpp"

#include "base/log.hpp"
#include "core/config_files.hpp"
#include "core/module_state.hpp"
#include "core/plugin_settings.hpp"
#include "core/runtime.hpp"
#include "core/scene_list_store.hpp"
#include "core/user_interface.hpp"
#include "output/vertical_output.hpp"

#include <QCoreApplication>
#include <QMessageBox>

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

// Sources are assigned a second time, as the host may have created some only now. The first call
// creates the dock.
void show_runtime() {
    restore_scene_list();
    reapply_scene_sources();
    module_state.ui->attach_dock();
    module_state.ui->register_dock();
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
    destroy_runtime(/*save_scenes=*/true);
    load_profile_config();
    if (!create_runtime_from_current_profile()) {
        log_error("Failed to rebuild vertical runtime after profile change");
        show_rebuild_failure();
        return;
    }
    show_runtime();
}

void on_finished_loading() {
    show_runtime();
}

void on_exit() {
    module_state.ui->record_dock_state();
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
