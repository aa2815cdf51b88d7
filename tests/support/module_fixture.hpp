// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "support/fake_frontend.hpp"
#include "support/log_capture.hpp"
#include "support/obs_session.hpp"

#include <util/platform.h>

#include <QMainWindow>
#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <format>
#include <fstream>
#include <iterator>
#include <string>

namespace corvane::test {

inline void write_file(const std::filesystem::path &file, const std::string &text) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << text;
}

inline std::string read_text(const std::filesystem::path &file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator(stream), {}};
}

inline Lines read_lines(const std::filesystem::path &file) {
    std::ifstream stream(file);
    Lines lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The built module, seen only through what it exports, logs, writes and does to the host. Each
// test has fresh profile and settings folders.
class ModuleFixture : public testing::Test {
protected:
    ModuleFixture() {
        ObsSession::destroy_released_sources();
        std::filesystem::remove_all(settings_dir);
        use_profile("default", small_profile(""));
        obs_module_t *module = nullptr;
        if (!library && obs_open_module(&module, CVC_MODULE, CVC_MODULE_DATA) == MODULE_SUCCESS) {
            library = obs_get_module_lib(module);
        }
        EXPECT_NE(library, nullptr);
    }
    ~ModuleFixture() override {
        log.at_each_line({});
        if (loaded_) {
            unload();
        }
        frontend.main_window = nullptr;
        frontend.tools_action.reset();
        frontend.scenes.clear();
        EXPECT_TRUE(frontend.callbacks.empty());
        EXPECT_FALSE(live());
    }

    template <typename Function>
    static Function *exported(const char *name) {
        return reinterpret_cast<Function *>(os_dlsym(library, name));
    }
    bool load() {
        loaded_ = true;
        return exported<bool()>("obs_module_load")();
    }
    void unload() {
        loaded_ = false;
        exported<void()>("obs_module_unload")();
    }
    void send(obs_frontend_event event) const { frontend.send(event); }

    // Makes the profile with this text as its settings file and the host's current one.
    void use_profile(const std::string &name, const std::string &ini) {
        frontend.profile_dir = profile_file(name).parent_path();
        write_file(profile_file(name), ini);
    }
    // A profile for a small canvas that streams to the URL.
    static std::string small_profile(
        const std::string &url, bool autostart = true, const std::string &key = "k") {
        return std::format("; by hand\n[VerticalCanvas]\nrtmpurl={}\nstreamkey={}\n"
                           "videobitrate=300\ncanvaswidth=72\ncanvasheight=128\n"
                           "autostartwithmain={}\n",
            url, key, autostart);
    }
    std::filesystem::path profile_file(const std::string &name) const {
        return profiles_.path().toStdString() + "/" + name + "/corvane-vertical-canvas.ini";
    }

    // The module's output streams.
    static bool live() {
        return std::ranges::any_of(all<OBSOutput>(obs_enum_outputs), obs_output_active);
    }

    LogCapture &log = LogCapture::get();
    FakeFrontend &frontend = FakeFrontend::get();
    QMainWindow window; // the host's, for those that give it one
    const std::filesystem::path settings_dir = ObsSession::config_dir / "corvane-vertical-canvas";
    const std::filesystem::path global_file = settings_dir / "settings-global.ini";

private:
    // Opened by the first test. The host never closes a module's library; loading and unloading
    // are calls of its functions.
    static inline void *library = nullptr;
    QTemporaryDir profiles_;
    bool loaded_ = false;
};

} // namespace corvane::test
