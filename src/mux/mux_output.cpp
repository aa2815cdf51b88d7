// SPDX-License-Identifier: GPL-2.0-or-later
// Life of an output: settings, start and stop.
#include "mux/mux_output.hpp"

namespace corvane {

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
        capture_ = Capture::kBeginning;
        close_muxer(); // one left over from a run that ended with an error
        free_pending_packets();
    }
    // Without the lock: libobs takes its own here, and packets come in with those held.
    if (!begin_capture()) {
        {
            const std::scoped_lock lock(mutex_);
            active_ = false;
        }
        if (capture_.exchange(Capture::kStopped) != Capture::kBeginning) {
            obs_output_end_data_capture(output_); // a stop waits for it
        }
        return false;
    }
    // Not with the lock either: a first packet may be connecting under it.
    Capture capture = Capture::kBeginning;
    if (!capture_.compare_exchange_strong(capture, Capture::kRunning)) {
        if (capture == Capture::kFailed) {
            stop_with_error();
        } else {
            obs_output_end_data_capture(output_);
        }
    }
    return true;
}

bool MuxOutput::claim_capture_end(Capture how) {
    return capture_.exchange(how) != Capture::kBeginning;
}

// The muxer waits for packets: the codec headers that its streams need exist only after each
// encoder has produced output.
bool MuxOutput::begin_capture() {
    if (!prepare_capture(output_)) {
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
    if (claim_capture_end(Capture::kStopped)) {
        obs_output_end_data_capture(output_);
    }
    const std::scoped_lock lock(mutex_);
    close_muxer();
}

void MuxOutput::fail() {
    {
        const std::scoped_lock lock(mutex_);
        if (!active_) {
            return;
        }
        active_ = false;
    }
    if (claim_capture_end(Capture::kFailed)) {
        stop_with_error();
    }
}

void MuxOutput::free_pending_packets() {
    pending_video_.reset();
    pending_audio_ = {};
}

} // namespace corvane
