// SPDX-License-Identifier: GPL-2.0-or-later
#include "core/lifecycle.hpp"

#include "base/log.hpp"
#include "base/url.hpp"
#include "core/config_files.hpp"
#include "core/frontend_events.hpp"
#include "core/module_state.hpp"
#include "core/plugin_settings.hpp"
#include "core/runtime.hpp"
#include "core/user_interface.hpp"
#include "mux/output_type.hpp"

#include <obs-frontend-api.h>

#include <string>

namespace corvane {

namespace {

constexpr const char *kVersion = "1.0.0";

void log_rule() {
    log_info("%s", std::string(60, '=').c_str());
}

void log_settings() {
    log_info("Canvas : %ux%u @ %u/%u fps", settings::canvaswidth.get(),
        settings::canvasheight.get(), settings::fpsnum.get(), settings::fpsden.get());
    const std::string url = settings::rtmpurl.get();
    log_info("RTMP : %s", (settings::resilience.get() ? without_secrets(url) : url).c_str());
    log_info("Bitrate: %u kbps", settings::videobitrate.get());
    log_info("Auto-start with main: %s", settings::autostartwithmain.get() ? "yes" : "no");
    log_rule();
}

} // namespace

bool load_module() {
    log_rule();
    log_info("Loading version %s", kVersion);
    log_rule();

    register_mux_output_types();
    log_info("Registered output type: %s", kMuxOutputId);

    load_global_config();
    load_profile_config();

    const std::scoped_lock lock(module_state.runtime_mutex);
    if (!create_runtime_from_current_profile()) {
        log_error("Runtime init failed — plugin will not load");
        return false;
    }
    obs_frontend_add_event_callback(on_frontend_event, nullptr);
    module_state.event_callback_registered = true;
    module_state.ui = make_user_interface().release();
    module_state.ui->add_tools_menu_item();
    log_info("Loaded successfully");
    log_settings();
    return true;
}

void unload_module() {
    log_info("Unloading");
    // Before the lock is taken: an event that is being handled holds it.
    if (module_state.event_callback_registered) {
        obs_frontend_remove_event_callback(on_frontend_event, nullptr);
        module_state.event_callback_registered = false;
    }

    const std::scoped_lock lock(module_state.runtime_mutex);
    destroy_runtime(/*save_scenes=*/true);
    delete module_state.ui;
    module_state.ui = nullptr;
    save_global_file();
    save_profile_file();
    close_config_files();
    finish_mux_outputs();
    log_info("Unloaded");
}

} // namespace corvane
