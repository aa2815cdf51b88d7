// SPDX-License-Identifier: GPL-2.0-or-later
// Life of an output: settings, start and stop.
#include "mux/mux_output.hpp"

namespace corvane {

namespace {

constexpr uint32_t kVideoAndAudio = OBS_OUTPUT_VIDEO | OBS_OUTPUT_AUDIO;

} // namespace

MuxOutput::MuxOutput(obs_data_t *settings, obs_output_t *output)
    : output_(output) {
    settings_.read(settings);
}

MuxOutput::~MuxOutput() {
    const std::scoped_lock lock(mutex_);
    close_muxer();
    free_pending_packets();
}

void MuxOutput::update(obs_data_t *settings) {
    const std::scoped_lock lock(mutex_);
    settings_.read(settings);
}

bool MuxOutput::start() {
    {
        const std::scoped_lock lock(mutex_);
        reconnecting_ = false;
        next_retry_ns_ = 0;
        retry_count_ = 0;
        if (settings_.url.url.empty()) {
            obs_output_set_last_error(output_, "Missing RTMP server/key");
            return false;
        }
        active_ = true;
        fatal_ = false;
        close_muxer(); // one left over from a run that ended with an error
        free_pending_packets();
    }
    // Without the lock: libobs takes its own here, and packets come in with those held.
    const bool begun = begin_capture();
    std::unique_lock lock(mutex_);
    if (!begun) {
        active_ = false;
        return false;
    }
    if (!active_ && !fatal_) {
        // An encoder failed at once: libobs stopped us before it took us for started, so that
        // stop ended nothing.
        lock.unlock();
        obs_output_end_data_capture(output_);
    }
    return true;
}

// The muxer waits for packets: the codec headers that its streams need exist only after each
// encoder has produced output.
bool MuxOutput::begin_capture() {
    if (!obs_output_can_begin_data_capture(output_, kVideoAndAudio)) {
        obs_output_set_last_error(output_, "obs_output_can_begin_data_capture failed");
        return false;
    }
    if (!obs_output_initialize_encoders(output_, kVideoAndAudio)) {
        obs_output_set_last_error(output_, "obs_output_initialize_encoders failed");
        return false;
    }
    obs_output_begin_data_capture(output_, kVideoAndAudio);
    return true;
}

void MuxOutput::stop(bool) {
    {
        const std::scoped_lock lock(mutex_);
        reconnecting_ = false;
        next_retry_ns_ = 0;
        retry_count_ = 0;
        if (!active_) {
            return;
        }
        active_ = false;
    }
    // Without the lock, since libobs may call back.
    obs_output_end_data_capture(output_);
    const std::scoped_lock lock(mutex_);
    close_muxer();
}

void MuxOutput::free_pending_packets() {
    pending_video_.reset();
    pending_audio_ = {};
}

} // namespace corvane
