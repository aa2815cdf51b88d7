// SPDX-License-Identifier: GPL-2.0-or-later
#include "target.hpp"

#include "floor.hpp"
#include "mux/output_type.hpp"
#include "testbed/obs_session.hpp"
#include "testbed/wait.hpp"

#include <array>
#include <stdexcept>

namespace corvane::bench {

namespace {

struct Kind {
    const char *name;
    const char *type;
    bool service;
};
constexpr std::array kKinds = {
    Kind{.name = "standard", .type = kMuxOutputId, .service = false},
    Kind{.name = "resilient", .type = kResilientOutputId, .service = false},
    Kind{.name = "host-rtmp", .type = "rtmp_output", .service = true},
    Kind{.name = "host-srt", .type = "ffmpeg_mpegts_muxer", .service = true},
    Kind{.name = "floor", .type = kFloorId, .service = false},
};

// So far behind live the host's RTMP output drops frames; sped up it would be behind in no time.
constexpr int kDropThresholdMs = 10'000;

const Kind &kind_of(const std::string &name) {
    for (const Kind &kind : kKinds) {
        if (kind.name == name) {
            return kind;
        }
    }
    throw std::runtime_error("no such target: " + name);
}

std::string last_error(obs_output_t *output) {
    const char *text = obs_output_get_last_error(output);
    return text ? text : "no reason given";
}

} // namespace

const char *Target::type_of(const std::string &name) {
    return kind_of(name).type;
}

void Target::register_types() {
    test::ObsSession::load_host_module("obs-outputs");
    test::ObsSession::load_host_module("rtmp-services");
    register_mux_output_types();
    register_floor();
}

Target::Target(
    const std::string &name, const std::string &url, const std::string &key, const Shape &shape) {
    const OBSDataAutoRelease settings = obs_data_create();
    obs_data_set_string(settings, "server", url.c_str());
    obs_data_set_string(settings, "key", key.c_str());
    obs_data_set_int(settings, "fps_num", shape.fps);
    obs_data_set_int(settings, "fps_den", 1);
    obs_data_set_int(settings, "drop_threshold_ms", kDropThresholdMs);
    if (const size_t colon = url.rfind(':'); colon != std::string::npos) {
        obs_data_set_int(settings, "port", std::atoi(url.c_str() + colon + 1));
    }
    const Kind &kind = kind_of(name);
    output_ = obs_output_create(kind.type, "measured", settings, nullptr);
    if (kind.service) {
        service_ = obs_service_create("rtmp_custom", "service", settings, nullptr);
        obs_output_set_service(output_, service_);
    }
    encoders_.emplace(output_, shape);
}

Target::~Target() {
    stop();
}

void Target::start() {
    if (!obs_output_start(output_) ||
        !test::wait_until([this] { return obs_output_active(output_); })) {
        throw std::runtime_error("the output does not start: " + last_error(output_));
    }
}

void Target::stop() {
    obs_output_force_stop(output_);
    test::wait_until([this] { return !obs_output_active(output_); });
}

void Target::check() const {
    if (!obs_output_active(output_)) {
        throw std::runtime_error("the output has ended: " + last_error(output_));
    }
}

} // namespace corvane::bench
