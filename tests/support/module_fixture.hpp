// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "support/fake_frontend.hpp"
#include "support/host_objects.hpp"
#include "support/log_capture.hpp"
#include "support/obs_session.hpp"
#include "support/wait.hpp"

#include <util/platform.h>

#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace corvane::test {

// The built module, seen only through what it exports, logs, writes and does to the host. Each
// test has fresh profile and settings folders.
class ModuleFixture : public testing::Test {
protected:
    ModuleFixture();
    ~ModuleFixture() override;

    bool load();
    void unload();
    void send(obs_frontend_event event) const { frontend.send(event); }
    template <typename Function>
    static Function *exported(const char *name) {
        return reinterpret_cast<Function *>(os_dlsym(library, name));
    }

    // Makes the profile with this text as its settings file and the host's current one.
    void use_profile(const std::string &name, const std::string &ini);
    // A profile for a small canvas that streams to the URL.
    static std::string small_profile(
        const std::string &url, bool autostart = true, const std::string &key = "k");
    std::filesystem::path profile_file(const std::string &name) const;

    // The module's output streams.
    static bool live();

    LogCapture &log = LogCapture::get();
    FakeFrontend &frontend = FakeFrontend::get();
    const std::filesystem::path settings_dir = ObsSession::config_dir / "corvane-vertical-canvas";
    const std::filesystem::path global_file = settings_dir / "settings-global.ini";

private:
    // Opened by the first test. The host never closes a module's library; loading and unloading
    // are calls of its functions.
    static inline void *library = nullptr;
    QTemporaryDir profiles_;
    bool loaded_ = false;
};

void write_file(const std::filesystem::path &file, const std::string &text);
Lines read_lines(const std::filesystem::path &file);

} // namespace corvane::test
