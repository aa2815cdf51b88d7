// SPDX-License-Identifier: GPL-2.0-or-later
#include "core/config_files.hpp"

#include "base/log.hpp"
#include "base/obs_handles.hpp"
#include "core/module_state.hpp"
#include "core/plugin_settings.hpp"

#include <obs-frontend-api.h>
#include <util/platform.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace corvane {

namespace {

namespace fs = std::filesystem;

// Far more than the longest scene list takes.
constexpr uintmax_t kMaxFileSize = 16 << 20;

fs::path fs_path(const std::string &utf8) {
    return {std::u8string(utf8.begin(), utf8.end())};
}

std::string take_string(char *host_string) {
    const HostString owned(host_string);
    return owned ? owned.get() : std::string();
}

// Whether the config library would read the whole text. It stops at the first zero byte and ignores
// what precedes the first section; the next save would lose the rest.
bool holds_settings(const std::string &text) {
    const auto is_blank = [](unsigned char character) {
        return std::isspace(character) != 0;
    };
    return text.find('\0') == std::string::npos &&
           (text.find('[') != std::string::npos || std::ranges::all_of(text, is_blank));
}

// Why the path must not be opened, or null. The config library opens anything: it crashes on the
// size of a folder and blocks forever on a pipe.
const char *objection_to(const fs::path &path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (!fs::exists(status)) {
        return nullptr; // will be created; that fails for a dangling link
    }
    if (!fs::is_regular_file(status)) {
        return "not a file";
    }
    if (fs::file_size(path, error) > kMaxFileSize) {
        return "too large";
    }
    return std::ifstream(path, std::ios::binary) ? nullptr : "not readable";
}

// A crash or a power loss can leave a file of zeros.
bool is_damaged(const fs::path &path) {
    std::ifstream stream(path, std::ios::binary);
    return !holds_settings({std::istreambuf_iterator(stream), {}});
}

// Renames the file to an unused name; false when the folder does not allow it.
bool move_aside(const std::string &path) {
    std::string aside = path + ".damaged";
    std::error_code error;
    for (int number = 2; fs::exists(fs::symlink_status(fs_path(aside), error)); ++number) {
        aside = path + ".damaged-" + std::to_string(number);
    }
    fs::rename(fs_path(path), fs_path(aside), error);
    if (error) {
        return false;
    }
    log_warning("Damaged, moved aside: %s → %s", path.c_str(), aside.c_str());
    return true;
}

// Opens the file, creating it if missing. A damaged file is moved aside with a warning. Anything
// else that must not be opened stays as it is, with a warning and false.
bool open_config(config_t *&config, const std::string &path) {
    const char *objection = objection_to(fs_path(path));
    if (!objection && is_damaged(fs_path(path)) && !move_aside(path)) {
        objection = "damaged";
    }
    if (objection) {
        log_warning("Left alone, and nothing is saved there: %s is %s", path.c_str(), objection);
        return false;
    }
    return config_open(&config, path.c_str(), CONFIG_OPEN_ALWAYS) == CONFIG_SUCCESS;
}

// On false the file on the disk is unchanged.
bool save_config(config_t *config, const std::string &path) {
    return has_room_for(path) && config_save_safe(config, "tmp", nullptr) == CONFIG_SUCCESS;
}

void close_config(config_t *&config) {
    config_close(config);
    config = nullptr;
}

} // namespace

void load_global_config() {
    close_config(module_state.global_config);
    module_state.scene_list_restored = false;
    const std::string path =
        take_string(obs_module_get_config_path(module_state.module, "settings-global.ini"));
    if (path.empty()) {
        log_warning("Could not resolve global config path");
        return;
    }
    ensure_parent_dir(path);
    if (!open_config(module_state.global_config, path)) {
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
    if (!open_config(module_state.profile_config, path)) {
        log_warning("Failed to open profile config: %s", path.c_str());
        return;
    }
    module_state.profile_config_path = path;
    settings::register_profile_defaults();
    log_info("Profile config loaded from: %s", path.c_str());
}

void save_global_file() {
    if (module_state.global_config &&
        !save_config(module_state.global_config, module_state.global_config_path)) {
        log_warning("Failed to save global config");
    }
}

void save_profile_file() {
    if (module_state.profile_config &&
        !save_config(module_state.profile_config, module_state.profile_config_path)) {
        log_warning("Failed to save profile config");
    }
}

void close_config_files() {
    close_config(module_state.global_config);
    close_config(module_state.profile_config);
}

bool has_room_for(const std::string &path) {
    constexpr size_t kGrowth = 64 << 10; // upper bound for one save
    const fs::path file = fs_path(path);
    const fs::path trial = fs_path(path + ".room");
    std::error_code error;
    const uintmax_t present = fs::file_size(file, error);
    std::ofstream stream(trial, std::ios::binary);
    stream << std::string((error ? 0 : present) + kGrowth, '\n') << std::flush;
    const bool fits = stream.good();
    stream.close();
    fs::remove(trial, error);
    return fits;
}

std::string profile_config_path() {
    const std::string folder = take_string(obs_frontend_get_current_profile_path());
    return folder.empty() ? folder : folder + "/corvane-vertical-canvas.ini";
}

void ensure_parent_dir(const std::string &path) {
    // Without a separator the whole path is the folder: npos is the end.
    const std::string folder = path.substr(0, path.find_last_of("/\\"));
    if (!folder.empty()) {
        os_mkdirs(folder.c_str());
    }
}

} // namespace corvane
