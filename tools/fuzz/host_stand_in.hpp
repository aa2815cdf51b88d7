// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <filesystem>
#include <string>

namespace corvane::fuzz {

// The log's lines are formatted, so that a wrong argument is found, and dropped.
void drop_log();

// A libobs without video and a folder of settings in memory, for the whole process. Needs a
// screen, but shows nothing on it.
class HostStandIn {
public:
    static HostStandIn &get();

    // The current profile's folder, and a file in it with this content.
    std::string profile_dir() const { return dir_; }
    std::string write(const char *name, const std::string &content) const;
    static std::string read(const std::filesystem::path &file);

    HostStandIn(const HostStandIn &) = delete;
    HostStandIn &operator=(const HostStandIn &) = delete;

private:
    HostStandIn();
    ~HostStandIn();

    std::string dir_;
};

} // namespace corvane::fuzz
