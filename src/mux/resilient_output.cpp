// SPDX-License-Identifier: GPL-2.0-or-later
// The host's side of the output: settings, start, stop, packets, statistics.
#include "mux/resilient_output.hpp"

#include "base/log.hpp"

namespace corvane {

namespace {

using namespace std::chrono_literals;

// What the end of a stream leaves for trailer and goodbye, so that all is over within a second.
constexpr auto kGoodbyeTime = 500ms;

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
    end_thread();
}

// The thread has told its end by now, or libobs would not start or destroy. A handler of "stop"
// that does so runs on the thread itself, which then touches nothing of this object any more.
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
    if (wanted()) {
        return false;
    }
    end_thread();
    if (!has_address()) {
        obs_output_set_last_error(output_, "Missing RTMP server/key");
        return false;
    }
    if (!prepare_capture(output_)) {
        return false;
    }
    buffer_.open();
    total_bytes_ = earlier_bytes_ = 0;
    bad_frames_ = bad_packets_ = connect_time_ms_ = 0;
    reported_frames_ = reported_sound_ = 0;
    {
        const std::scoped_lock lock(mutex_);
        capturing_.reset();
        end_code_.reset();
        end_told_ = false;
        forced_at_.reset();
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
    bool told = false;
    {
        const std::scoped_lock lock(mutex_);
        if (forced && !forced_at_) {
            forced_at_ = Clock::now();
        }
        told = end_told_;
    }
    end(OBS_OUTPUT_SUCCESS);
    if (told && !obs_output_active(output_)) {
        // libobs has taken the output out of service between its decision to stop it and this call,
        // and waits for an end that was before.
        obs_output_end_data_capture(output_);
    }
}

bool ResilientOutput::has_address() {
    const std::scoped_lock lock(mutex_);
    return !settings_.url.url.empty();
}

bool ResilientOutput::wanted() {
    const std::scoped_lock lock(mutex_);
    return !end_code_;
}

// The first reason to end counts. Only an encoder's failure comes after the stop that libobs makes
// of it. Once the lock is free, the network thread may tell the end and this object be gone.
void ResilientOutput::end(int code) {
    const std::scoped_lock lock(mutex_);
    if (end_code_ && (!forced_at_ || code != OBS_OUTPUT_ENCODE_ERROR)) {
        return;
    }
    end_code_ = code;
    if (connection_) {
        connection_->interrupt().end_within(connected_ ? kGoodbyeTime : 0ms);
    }
    buffer_.close();
    changed_.notify_all();
}

void ResilientOutput::encoded_packet(const encoder_packet *packet) {
    if (!packet) {
        end(OBS_OUTPUT_ENCODE_ERROR);
    } else if (buffer_.push(*packet)) {
        report_drops();
    }
}

void ResilientOutput::report_drops() {
    const uint64_t frames = buffer_.dropped_frames();
    const uint64_t sound = buffer_.dropped_sound();
    const auto now = Clock::now();
    if ((frames == reported_frames_ && sound == reported_sound_) ||
        now - drops_reported_at_ < kReportEvery) {
        return;
    }
    if (frames != reported_frames_) {
        log_warning("video frames dropped: %d, %d in all",
            static_cast<int>(frames - reported_frames_), static_cast<int>(frames));
    }
    if (sound != reported_sound_) {
        log_warning("audio packets dropped: %d, %d in all",
            static_cast<int>(sound - reported_sound_), static_cast<int>(sound));
    }
    reported_frames_ = frames;
    reported_sound_ = sound;
    drops_reported_at_ = now;
}

int ResilientOutput::dropped_frames() const {
    return static_cast<int>(buffer_.dropped_frames()) + bad_frames_;
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
