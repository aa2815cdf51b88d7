// SPDX-License-Identifier: GPL-2.0-or-later
#include "host_stand_in.hpp"

#include "check.hpp"

#include <obs-frontend-api.h>
#include <obs.h>
#include <util/base.h>
#include <util/bmem.h>

extern "C" {
#include <libavutil/log.h>
}

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace corvane::fuzz {

namespace {

void drop_line(int, const char *format, va_list arguments, void *) {
    char line[512];
    vsnprintf(line, sizeof(line), format, arguments);
}

std::string make_dir() {
    char name[] = "/dev/shm/settings-XXXXXX";
    check(mkdtemp(name) != nullptr, "a folder can be made");
    return name;
}

} // namespace

void drop_log() {
    base_set_log_handler(drop_line, nullptr);
    av_log_set_level(AV_LOG_QUIET);
}

HostStandIn &HostStandIn::get() {
    static HostStandIn host;
    return host;
}

HostStandIn::HostStandIn()
    : dir_(make_dir()) {
    drop_log();
    check(obs_startup("en-US", dir_.c_str(), nullptr), "libobs starts");
}

HostStandIn::~HostStandIn() {
    obs_shutdown();
    std::filesystem::remove_all(dir_);
}

std::string HostStandIn::write(const char *name, const std::string &content) const {
    const std::string path = dir_ + "/" + name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

std::string HostStandIn::read(const std::filesystem::path &file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator(stream), {}};
}

} // namespace corvane::fuzz

char *obs_frontend_get_current_profile_path() {
    return bstrdup(corvane::fuzz::HostStandIn::get().profile_dir().c_str());
}
