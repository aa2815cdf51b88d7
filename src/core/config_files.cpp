// SPDX-License-Identifier: GPL-2.0-or-later
#include "core/config_files.hpp"

#include "base/log.hpp"
#include "base/obs_handles.hpp"
#include "core/guarded_config.hpp"
#include "core/module_state.hpp"
#include "core/plugin_settings.hpp"

#include <obs-frontend-api.h>
#include <obs-module.h>
#include <util/platform.h>

namespace corvane {

namespace {

std::string take_string(char *host_string) {
    const HostString owned(host_string);
    return owned ? owned.get() : std::string();
}

void close_config(config_t *&config) {
    config_close(config);
    config = nullptr;
}

} // namespace

void load_global_config() {
    close_config(module_state.global_config);
    module_state.scene_list_restored = false;
    const std::string path = take_string(obs_module_config_path("settings-global.ini"));
    if (path.empty()) {
        log_warning("Could not resolve global config path");
        return;
    }
    ensure_parent_dir(path);
    if (!open_guarded_config(module_state.global_config, path)) {
        log_warning("Failed to open global config: %s", path.c_str());
        return;
    }
    module_state.global_config_path = path;
    settings::register_global_defaults();
    log_info("Global config loaded from: %s", path.c_str());
}

void load_profile_config() {
    close_config(module_state.profile_config);
    const std::string path = profile_config_path();
    if (path.empty()) {
        log_warning("Could not resolve profile config path");
        return;
    }
    ensure_parent_dir(path);
    if (!open_guarded_config(module_state.profile_config, path)) {
        log_warning("Failed to open profile config: %s", path.c_str());
        return;
    }
    module_state.profile_config_path = path;
    settings::register_profile_defaults();
    log_info("Profile config loaded from: %s", path.c_str());
}

void save_global_file() {
    if (module_state.global_config &&
        !save_guarded_config(module_state.global_config, module_state.global_config_path)) {
        log_warning("Failed to save global config");
    }
}

void save_profile_file() {
    if (module_state.profile_config &&
        !save_guarded_config(module_state.profile_config, module_state.profile_config_path)) {
        log_warning("Failed to save profile config");
    }
}

void close_config_files() {
    close_config(module_state.global_config);
    close_config(module_state.profile_config);
}

std::string profile_config_path() {
    const std::string folder = take_string(obs_frontend_get_current_profile_path());
    return folder.empty() ? folder : folder + "/corvane-vertical-canvas.ini";
}

void ensure_parent_dir(const std::string &path) {
    // Without a separator the whole path is taken: npos is the end.
    const std::string folder = path.substr(0, path.find_last_of("/\\"));
    if (!folder.empty()) {
        os_mkdirs(folder.c_str());
    }
}

} // namespace corvane
