// SPDX-License-Identifier: GPL-2.0-or-later
#include "core/guarded_config.hpp"

#include "base/log.hpp"

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
constexpr uintmax_t kLargestFile = 16 << 20;

fs::path fs_path(const std::string &utf8) {
    return {std::u8string(utf8.begin(), utf8.end())};
}

// Whether the config library finds all that the file holds. What it does not find, the next save
// would wipe out: it reads to the first zero byte, and nothing before the first section.
bool holds_settings(const std::string &text) {
    const auto is_blank = [](unsigned char character) {
        return std::isspace(character) != 0;
    };
    return text.find('\0') == std::string::npos &&
           (text.find('[') != std::string::npos || std::ranges::all_of(text, is_blank));
}

// Why what is at the path must not be opened, or null. The config library opens whatever is
// there: it ends the process over a folder's length and waits for good at a pipe.
const char *objection_to(const fs::path &path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (!fs::exists(status)) {
        return nullptr; // to be made; a link that leads nowhere fails there
    }
    if (!fs::is_regular_file(status)) {
        return "not a file";
    }
    if (fs::file_size(path, error) > kLargestFile) {
        return "too large";
    }
    return std::ifstream(path, std::ios::binary) ? nullptr : "not readable";
}

// A crash or a loss of power can leave a file of zeros.
bool is_damaged(const fs::path &path) {
    std::ifstream stream(path, std::ios::binary);
    return !holds_settings({std::istreambuf_iterator(stream), {}});
}

// Gives the file a name that no other one has; false when the folder does not allow it.
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

// Whether about as much as the file will hold can still be written beside it. The config library
// does not notice when the last bytes of the new file are refused: on a full disk it would
// replace the old one by an empty or a cut one.
bool has_room_for(const std::string &path) {
    constexpr size_t kGrowth = 64 << 10; // of one save, generously
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

} // namespace

bool open_guarded_config(config_t *&config, const std::string &path) {
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

bool save_guarded_config(config_t *config, const std::string &path) {
    return has_room_for(path) && config_save_safe(config, "tmp", nullptr) == CONFIG_SUCCESS;
}

} // namespace corvane
