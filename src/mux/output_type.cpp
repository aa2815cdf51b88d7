// SPDX-License-Identifier: GPL-2.0-or-later
// The records that libobs knows the output types by; their functions forward to StreamOutput.
#include "mux/output_type.hpp"

#include "base/log.hpp"
#include "mux/resilient/resilient_output.hpp"
#include "mux/resilient/run_abandonable.hpp"
#include "mux/standard/mux_output.hpp"

#include <chrono>
#include <exception>
#include <memory>

namespace corvane {

namespace {

// The pointer that cv_mux_create() returned.
StreamOutput *self(void *data) {
    return static_cast<StreamOutput *>(data);
}

// libobs is C: no exception may reach it. False if `call` threw (out of memory, no thread).
template <typename Call>
bool call_guarded(obs_output_t *output, Call call) noexcept {
    try {
        call();
        return true;
    } catch (const std::exception &error) {
        log_error("Vertical output failed: %s", error.what());
        obs_output_set_last_error(output, error.what());
        return false;
    }
}

// The same, and an exception ends the stream.
template <typename Call>
void call_or_end(void *data, Call call) noexcept {
    if (data && !call_guarded(self(data)->handle(), [&] { call(*self(data)); })) {
        self(data)->end_with_error();
    }
}

template <typename Output>
void *cv_mux_create(obs_data_t *settings, obs_output_t *output) noexcept {
    std::unique_ptr<StreamOutput> created;
    call_guarded(output, [&] { created = std::make_unique<Output>(settings, output); });
    return created.release();
}

const char *cv_mux_get_name(void *) noexcept {
    return "Vertical RTMP Mux (multitrack v2)";
}

void cv_mux_destroy(void *data) noexcept {
    delete self(data);
}

bool cv_mux_start(void *data) noexcept {
    log_info("cv_mux_start called");
    bool started = false;
    return data && call_guarded(self(data)->handle(), [&] { started = self(data)->start(); }) &&
           started;
}

void cv_mux_stop(void *data, uint64_t timestamp_ns) noexcept {
    call_or_end(data, [=](StreamOutput &output) { output.stop(timestamp_ns == 0); });
}

void cv_mux_encoded_packet(void *data, encoder_packet *packet) noexcept {
    call_or_end(data, [=](StreamOutput &output) { output.encoded_packet(packet); });
}

void cv_mux_update(void *data, obs_data_t *settings) noexcept {
    call_or_end(data, [=](StreamOutput &output) { output.update(settings); });
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

using Statistics = StreamOutput::Statistics;

template <auto Field>
auto cv_mux_statistic(void *data) noexcept {
    return (data ? self(data)->statistics() : Statistics{}).*Field;
}

obs_output_info standard_type() {
    obs_output_info info = {};
    info.id = kMuxOutputId;
    info.flags = OBS_OUTPUT_VIDEO | OBS_OUTPUT_AUDIO | OBS_OUTPUT_ENCODED | OBS_OUTPUT_MULTI_TRACK;
    info.get_name = cv_mux_get_name;
    info.create = cv_mux_create<MuxOutput>;
    info.destroy = cv_mux_destroy;
    info.start = cv_mux_start;
    info.stop = cv_mux_stop;
    info.encoded_packet = cv_mux_encoded_packet;
    info.update = cv_mux_update;
    info.get_defaults = cv_mux_defaults;
    info.get_properties = cv_mux_properties;
    return info;
}

// The standard type's functions with another class behind them, and statistics.
obs_output_info resilient_type() {
    obs_output_info info = standard_type();
    info.id = kResilientOutputId;
    info.get_name = [](void *) noexcept {
        return "Vertical RTMP Mux (resilient)";
    };
    info.create = cv_mux_create<ResilientOutput>;
    info.get_total_bytes = cv_mux_statistic<&Statistics::total_bytes>;
    info.get_dropped_frames = cv_mux_statistic<&Statistics::dropped_frames>;
    info.get_congestion = cv_mux_statistic<&Statistics::congestion>;
    info.get_connect_time_ms = cv_mux_statistic<&Statistics::connect_time_ms>;
    return info;
}

} // namespace

void register_mux_output_types() {
    for (const obs_output_info &info : {standard_type(), resilient_type()}) {
        obs_register_output_s(&info, sizeof(info));
    }
}

void finish_mux_outputs() {
    constexpr std::chrono::seconds kLimit{2};
    if (!finish_abandoned_threads(kLimit)) {
        log_warning("A connection that could not be interrupted is left behind");
    }
}

} // namespace corvane
