// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "testbed/host_scene.hpp"
#include "testbed/log_capture.hpp"
#include "testbed/obs_session.hpp"
#include "testbed/stand_in_frontend.hpp"
#include "testbed/wait.hpp"

#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace corvane::test {

// The built module, seen only through what it exports, logs, writes and does to the host. Each
// test has fresh profile and settings folders.
class LoadedModule : public testing::Test {
protected:
    LoadedModule();
    ~LoadedModule() override;

    bool load();
    void unload();
    void send(obs_frontend_event event) { StandInFrontend::get().send(event); }

    // Makes the profile with this text as its settings file and the host's current one.
    void use_profile(const std::string &name, const std::string &ini);
    // A profile for a small canvas that streams to the URL.
    static std::string small_profile(
        const std::string &url, bool autostart = true, const std::string &key = "k");

    std::filesystem::path profile_file(const std::string &name) const;
    std::filesystem::path global_file() const { return settings_dir / "settings-global.ini"; }

    // The module's output streams.
    static bool live();
    template <typename Function>
    Function *exported(const char *name) const {
        return reinterpret_cast<Function *>(find(name));
    }

    LogCapture &log = LogCapture::get();
    std::string &profile_dir = StandInFrontend::get().profile_dir;
    const std::filesystem::path settings_dir;

private:
    void *find(const char *name) const;

    // Opened by the first test. The host never closes a module's library; loading and unloading
    // are calls of its functions.
    static inline void *library = nullptr;
    QTemporaryDir profiles_;
    bool loaded_ = false;
};

void write_file(const std::filesystem::path &file, const std::string &text);
// Each with a line's end.
void write_file(const std::filesystem::path &file, const Lines &lines);
Lines read_lines(const std::filesystem::path &file);

} // namespace corvane::test
