// SPDX-License-Identifier: GPL-2.0-or-later
// The functions that the host finds in the module by name. Their declarations in obs-module.h
// give them C linkage and default visibility.
#include "base/log.hpp"
#include "core/config_files.hpp"
#include "core/frontend_events.hpp"
#include "core/hotkeys.hpp"
#include "core/module_state.hpp"
#include "core/plugin_settings.hpp"
#include "core/remote_control.hpp"
#include "core/runtime.hpp"
#include "core/user_interface.hpp"
#include "mux/common/stream_url.hpp"
#include "mux/output_type.hpp"

#include <obs-frontend-api.h>
#include <obs-module.h>

#include <string>

using namespace corvane;

namespace {

void log_rule() {
    log_info("%s", std::string(60, '=').c_str());
}

void log_settings() {
    log_info("Canvas : %ux%u @ %u/%u fps", settings::canvaswidth.get(),
        settings::canvasheight.get(), settings::fpsnum.get(), settings::fpsden.get());
    const std::string url = settings::rtmpurl.get();
    log_info("RTMP : %s",
        (settings::resilience.get() ? shown_server(url, settings::streamkey.get()) : url).c_str());
    log_info("Bitrate: %u kbps", settings::videobitrate.get());
    log_info("Auto-start with main: %s", settings::autostartwithmain.get() ? "yes" : "no");
    log_rule();
}

// Two copies may be installed, for the user and for all. Both would stream, and each would
// overwrite what the other saves.
bool loaded_elsewhere() {
    bool found = false;
    const auto look = [](void *data, obs_module_t *other) {
        const std::string name = obs_get_module_file_name(other);
        if (other != module_state.module && name == obs_get_module_file_name(module_state.module)) {
            log_error("Already loaded from %s — uninstall one of the two",
                obs_get_module_binary_path(other));
            *static_cast<bool *>(data) = true;
        }
    };
    obs_enum_modules(look, &found);
    return found;
}

} // namespace

// On false the host refuses the module; the output types then stay registered and the config files
// stay open until it is unloaded.
bool obs_module_load() {
    log_rule();
    log_info("Loading version %s", CVC_VERSION);
    log_rule();
    if (loaded_elsewhere()) {
        return false;
    }

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
    module_state.hotkeys = new Hotkeys;
    log_info("Loaded successfully");
    log_settings();
    return true;
}

// Safe after a failed load, too.
void obs_module_unload() {
    log_info("Unloading");
    // Not under the lock, which an event in progress holds.
    if (module_state.event_callback_registered) {
        obs_frontend_remove_event_callback(on_frontend_event, nullptr);
        module_state.event_callback_registered = false;
    }

    const std::scoped_lock lock(module_state.runtime_mutex);
    if (module_state.ui) {
        module_state.ui->close_settings();
    }
    delete module_state.remote_control;
    module_state.remote_control = nullptr;
    destroy_runtime(/*save_scenes=*/true);
    delete module_state.hotkeys;
    module_state.hotkeys = nullptr;
    delete module_state.ui;
    module_state.ui = nullptr;
    save_global_file();
    save_profile_file();
    close_config_files();
    finish_mux_outputs();
    log_info("Unloaded");
}

// Only a macro declares these two, and that would fix the version to the headers' own.
MODULE_EXPORT void obs_module_set_pointer(obs_module_t *module) {
    module_state.module = module;
}

// Not the headers' version: the host refuses modules built for a newer libobs than its own, and
// every 32.x has what the module uses.
MODULE_EXPORT uint32_t obs_module_ver() {
    return MAKE_SEMANTIC_VERSION(32, 0, 4);
}

const char *obs_module_name() {
    return kModuleName;
}

const char *obs_module_description() {
    return "Vertical canvas streams a second 9:16 RTMP output simultaneously";
}

void obs_module_set_locale(const char *locale) {
    text_lookup_destroy(module_state.locale_lookup);
    module_state.locale_lookup = obs_module_load_locale(module_state.module, "en-US", locale);
}

void obs_module_free_locale() {
    text_lookup_destroy(module_state.locale_lookup);
    module_state.locale_lookup = nullptr;
}

bool obs_module_get_string(const char *lookup_string, const char **translated_string) {
    return text_lookup_getstr(module_state.locale_lookup, lookup_string, translated_string);
}
