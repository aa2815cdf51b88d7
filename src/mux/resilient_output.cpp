// SPDX-License-Identifier: GPL-2.0-or-later
// The host's side of the output: settings, start, stop, packets, statistics.
#include "mux/resilient_output.hpp"

#include "base/log.hpp"

namespace corvane {

namespace {

using namespace std::chrono_literals;

constexpr uint32_t kVideoAndAudio = OBS_OUTPUT_VIDEO | OBS_OUTPUT_AUDIO;

// What the end of a stream leaves for trailer and goodbye: with FFmpeg's steps of a tenth of a
// second all is over within one.
constexpr auto kGoodbyeTime = 600ms;

constexpr auto kReportEvery = 1s;

} // namespace

ResilientOutput::ResilientOutput(obs_data_t *settings, obs_output_t *output)
    : output_(output) {
    settings_.read(settings);
    ready_.start();
    proc_handler_add(obs_output_get_proc_handler(output_),
        "void connection_state(out string phase, out int failures, out string reason)",
        report_state, this);
}

ResilientOutput::~ResilientOutput() {
    end(OBS_OUTPUT_SUCCESS);
    if (thread_.joinable()) {
        thread_.join();
    }
}

void ResilientOutput::update(obs_data_t *settings) {
    const std::scoped_lock lock(mutex_);
    settings_.read(settings);
}

bool ResilientOutput::start() {
    if (thread_.joinable()) {
        thread_.join(); // it has told its end, or libobs would not start again
    }
    {
        const std::scoped_lock lock(mutex_);
        if (settings_.url.url.empty()) {
            obs_output_set_last_error(output_, "Missing RTMP server/key");
            return false;
        }
    }
    if (!obs_output_can_begin_data_capture(output_, kVideoAndAudio)) {
        obs_output_set_last_error(output_, "obs_output_can_begin_data_capture failed");
        return false;
    }
    if (!obs_output_initialize_encoders(output_, kVideoAndAudio)) {
        obs_output_set_last_error(output_, "obs_output_initialize_encoders failed");
        return false;
    }
    interrupt_.reset();
    buffer_.open();
    total_bytes_ = earlier_bytes_ = 0;
    bad_packets_ = connect_time_ms_ = 0;
    unreported_drops_ = 0;
    {
        const std::scoped_lock lock(mutex_);
        capturing_.reset();
        end_code_.reset();
        forced_ = false;
        phase_ = Phase::kConnecting;
        failures_ = 0;
        reason_.clear();
    }
    thread_ = std::thread(&ResilientOutput::run, this);
    const bool begun = obs_output_begin_data_capture(output_, kVideoAndAudio);
    {
        const std::scoped_lock lock(mutex_);
        capturing_ = begun;
    }
    if (!begun) {
        end(OBS_OUTPUT_SUCCESS);
    }
    changed_.notify_all();
    return begun;
}

void ResilientOutput::stop(bool forced) {
    {
        const std::scoped_lock lock(mutex_);
        forced_ = forced_ || forced;
    }
    end(OBS_OUTPUT_SUCCESS);
}

bool ResilientOutput::wanted() {
    const std::scoped_lock lock(mutex_);
    return !end_code_;
}

// The first reason to end counts. Only an encoder's failure comes after the stop that libobs makes
// of it.
void ResilientOutput::end(int code) {
    {
        const std::scoped_lock lock(mutex_);
        if (end_code_ && (!forced_ || code == OBS_OUTPUT_SUCCESS)) {
            return;
        }
        end_code_ = code;
    }
    interrupt_.end_within(kGoodbyeTime);
    buffer_.close();
    changed_.notify_all();
}

void ResilientOutput::encoded_packet(const encoder_packet *packet) {
    if (!packet) {
        end(OBS_OUTPUT_ENCODE_ERROR);
    } else if (packet->data && packet->size > 0) {
        report_dropped(buffer_.push(*packet));
    }
}

void ResilientOutput::report_dropped(size_t dropped) {
    unreported_drops_ += dropped;
    const auto now = LiveBuffer::Clock::now();
    if (unreported_drops_ > 0 && now - drops_reported_ >= kReportEvery) {
        log_warning("network too slow: %zu video frames dropped, %d in all", unreported_drops_,
            dropped_frames());
        unreported_drops_ = 0;
        drops_reported_ = now;
    }
}

int ResilientOutput::dropped_frames() const {
    return static_cast<int>(buffer_.dropped_frames()) + bad_packets_;
}

void ResilientOutput::report_state(void *data, calldata_t *answer) {
    auto *self = static_cast<ResilientOutput *>(data);
    constexpr const char *kPhases[] = {"stopped", "connecting", "connected", "reconnecting"};
    const std::scoped_lock lock(self->mutex_);
    calldata_set_string(answer, "phase", kPhases[static_cast<size_t>(self->phase_)]);
    calldata_set_int(answer, "failures", self->failures_);
    calldata_set_string(answer, "reason", self->reason_.c_str());
}

} // namespace corvane
