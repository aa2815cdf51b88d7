// SPDX-License-Identifier: GPL-2.0-or-later
// The output types as libobs sees them: records of forwards into StreamOutput.
#include "mux/output_type.hpp"

#include "base/log.hpp"
#include "mux/mux_output.hpp"
#include "mux/resilient_output.hpp"

#include <new>

namespace corvane {

namespace {

// No exception passes into libobs: one that nothing catches ends the process here. libobs calls
// with the pointer that create returned, which therefore is one to the base.
StreamOutput *self(void *data) {
    return static_cast<StreamOutput *>(data);
}

const ResilientOutput &resilient(void *data) {
    return static_cast<const ResilientOutput &>(*self(data));
}

const char *cv_mux_get_name(void *) noexcept {
    return "Vertical RTMP Mux (multitrack v2)";
}

void *cv_mux_create(obs_data_t *settings, obs_output_t *output) noexcept {
    return static_cast<StreamOutput *>(new (std::nothrow) MuxOutput(settings, output));
}

void cv_mux_destroy(void *data) noexcept {
    delete self(data);
}

bool cv_mux_start(void *data) noexcept {
    log_info("cv_mux_start called");
    return data && self(data)->start();
}

void cv_mux_stop(void *data, uint64_t timestamp_ns) noexcept {
    if (data) {
        self(data)->stop(timestamp_ns == 0);
    }
}

void cv_mux_encoded_packet(void *data, encoder_packet *packet) noexcept {
    if (data) {
        self(data)->encoded_packet(packet);
    }
}

void cv_mux_update(void *data, obs_data_t *settings) noexcept {
    if (data) {
        self(data)->update(settings);
    }
}

void cv_mux_defaults(obs_data_t *settings) noexcept {
    obs_data_set_default_string(settings, "server", "");
    obs_data_set_default_string(settings, "key", "");
}

obs_properties_t *cv_mux_properties(void *) noexcept {
    obs_properties_t *properties = obs_properties_create();
    obs_properties_add_text(properties, "server", "RTMP Server", OBS_TEXT_DEFAULT);
    obs_properties_add_text(properties, "key", "Stream Key", OBS_TEXT_PASSWORD);
    return properties;
}

obs_output_info standard_type() {
    obs_output_info info = {};
    info.id = kMuxOutputId;
    info.flags = OBS_OUTPUT_VIDEO | OBS_OUTPUT_AUDIO | OBS_OUTPUT_ENCODED | OBS_OUTPUT_MULTI_TRACK;
    info.get_name = cv_mux_get_name;
    info.create = cv_mux_create;
    info.destroy = cv_mux_destroy;
    info.start = cv_mux_start;
    info.stop = cv_mux_stop;
    info.encoded_packet = cv_mux_encoded_packet;
    info.update = cv_mux_update;
    info.get_defaults = cv_mux_defaults;
    info.get_properties = cv_mux_properties;
    return info;
}

// The standard type's forwards, another object behind them, and statistics.
obs_output_info resilient_type() {
    obs_output_info info = standard_type();
    info.id = kResilientOutputId;
    info.get_name = [](void *) noexcept {
        return "Vertical RTMP Mux (resilient)";
    };
    info.create = [](obs_data_t *settings, obs_output_t *output) noexcept -> void * {
        return static_cast<StreamOutput *>(new (std::nothrow) ResilientOutput(settings, output));
    };
    info.get_total_bytes = [](void *data) noexcept {
        return data ? resilient(data).total_bytes() : 0;
    };
    info.get_dropped_frames = [](void *data) noexcept {
        return data ? resilient(data).dropped_frames() : 0;
    };
    info.get_congestion = [](void *data) noexcept {
        return data ? resilient(data).congestion() : 0.0F;
    };
    info.get_connect_time_ms = [](void *data) noexcept {
        return data ? resilient(data).connect_time_ms() : 0;
    };
    return info;
}

} // namespace

void register_mux_output_types() {
    for (const obs_output_info &info : {standard_type(), resilient_type()}) {
        obs_register_output_s(&info, sizeof(info));
    }
}

} // namespace corvane
