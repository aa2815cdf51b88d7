// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/resilient/resilient_output.hpp"

#include <exception>
#include <utility>

namespace corvane {

ResilientOutput::ResilientOutput(obs_data_t *settings, obs_output_t *output)
    : output_(output) {
    settings_.read(settings);
    proc_handler_add(obs_output_get_proc_handler(output_),
        "void connection_state(out string phase, out int failures, out string reason)",
        report_state, this);
}

ResilientOutput::~ResilientOutput() {
    if (const auto last = session()) {
        last->end(OBS_OUTPUT_SUCCESS);
    }
    end_thread();
}

// libobs has been told of the end by now, or it would not start or destroy. A handler of "stop"
// that does either runs on the thread itself, which then uses nothing of this object any more.
void ResilientOutput::end_thread() {
    if (thread_.get_id() == std::this_thread::get_id()) {
        thread_.detach();
    } else if (thread_.joinable()) {
        thread_.join();
    }
}

void ResilientOutput::update(obs_data_t *settings) {
    const std::scoped_lock lock(mutex_);
    settings_.read(settings);
}

bool ResilientOutput::start() {
    if (const auto last = session(); last && last->wanted()) {
        return false;
    }
    end_thread();
    if (settings().url.url.empty()) {
        obs_output_set_last_error(output_, "Missing RTMP server/key");
        return false;
    }
    if (!prepare_capture(output_)) {
        return false;
    }
    const auto begun = std::make_shared<StreamSession>(output_, [this] { return settings(); });
    thread_ = std::thread([begun] { begun->run(); });
    {
        const std::scoped_lock lock(mutex_);
        session_ = begun;
    }
    const bool success = obs_output_begin_data_capture(output_, kVideoAndAudio);
    begun->capture_began(success);
    return success;
}

void ResilientOutput::stop(bool forced) {
    const auto present = session();
    if (present && present->stop(forced) && !obs_output_active(output_)) {
        // libobs has taken the output out of service between its decision to stop it and this call,
        // and now waits for an end that came before.
        obs_output_end_data_capture(output_);
    }
}

void ResilientOutput::encoded_packet(const encoder_packet *packet) {
    const auto present = session();
    if (!present) {
        return;
    }
    if (packet) {
        present->push(*packet);
    } else {
        present->encoder_failed();
    }
}

void ResilientOutput::fail() {
    if (const auto present = session()) {
        present->end(OBS_OUTPUT_ERROR);
    }
}

uint64_t ResilientOutput::total_bytes() const {
    const auto present = session();
    return present ? present->bytes() : 0;
}

int ResilientOutput::dropped_frames() const {
    const auto present = session();
    return present ? present->dropped_frames() : 0;
}

float ResilientOutput::congestion() const {
    const auto present = session();
    return present ? present->congestion() : 0;
}

int ResilientOutput::connect_time_ms() const {
    const auto present = session();
    return present ? present->connect_time_ms() : 0;
}

std::shared_ptr<StreamSession> ResilientOutput::session() const {
    const std::scoped_lock lock(mutex_);
    return session_;
}

StreamSettings ResilientOutput::settings() const {
    const std::scoped_lock lock(mutex_);
    return settings_;
}

// libobs calls it from C: without memory the answer stays empty.
void ResilientOutput::report_state(void *data, calldata_t *answer) {
    try {
        StreamSession::Report report{.phase = "stopped", .failures = 0, .reason = {}};
        if (const auto present = static_cast<const ResilientOutput *>(data)->session()) {
            report = present->report();
        }
        calldata_set_string(answer, "phase", report.phase);
        calldata_set_int(answer, "failures", report.failures);
        calldata_set_string(answer, "reason", report.reason.c_str());
    } catch (const std::exception &) {
        calldata_clear(answer);
    }
}

} // namespace corvane
