// SPDX-License-Identifier: GPL-2.0-or-later
#include "support/module_fixture.hpp"

#include <obs.h>

#include <format>
#include <fstream>

namespace corvane::test {

ModuleFixture::ModuleFixture() {
    ObsSession::destroy_released_sources();
    std::filesystem::remove_all(settings_dir);
    use_profile("default", small_profile(""));
    obs_module_t *module = nullptr;
    if (!library && obs_open_module(&module, CVC_MODULE, CVC_MODULE_DATA) == MODULE_SUCCESS) {
        library = obs_get_module_lib(module);
    }
    EXPECT_NE(library, nullptr);
}

ModuleFixture::~ModuleFixture() {
    log.at_each_line({});
    if (loaded_) {
        unload();
    }
    frontend.main_window = nullptr;
    EXPECT_TRUE(frontend.callbacks.empty());
    EXPECT_FALSE(live());
}

bool ModuleFixture::load() {
    loaded_ = true;
    return exported<bool()>("obs_module_load")();
}

void ModuleFixture::unload() {
    loaded_ = false;
    exported<void()>("obs_module_unload")();
}

void ModuleFixture::use_profile(const std::string &name, const std::string &ini) {
    frontend.profile_dir = profile_file(name).parent_path().string();
    write_file(profile_file(name), ini);
}

std::string ModuleFixture::small_profile(
    const std::string &url, bool autostart, const std::string &key) {
    return std::format("; by hand\n[VerticalCanvas]\nrtmpurl={}\nstreamkey={}\nvideobitrate=300\n"
                       "canvaswidth=72\ncanvasheight=128\nautostartwithmain={}\n",
        url, key, autostart);
}

std::filesystem::path ModuleFixture::profile_file(const std::string &name) const {
    return profiles_.path().toStdString() + "/" + name + "/corvane-vertical-canvas.ini";
}

bool ModuleFixture::live() {
    bool active = false;
    const auto visit = [](void *any_active, obs_output_t *output) {
        *static_cast<bool *>(any_active) |= obs_output_active(output);
        return true;
    };
    obs_enum_outputs(visit, &active);
    return active;
}

void write_file(const std::filesystem::path &file, const std::string &text) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << text;
}

Lines read_lines(const std::filesystem::path &file) {
    std::ifstream stream(file);
    Lines lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

} // namespace corvane::test
