// SPDX-License-Identifier: GPL-2.0-or-later
// The public controls of the vertical stream.
#include "output/vertical_output.hpp"

#include "base/log.hpp"
#include "base/obs_handles.hpp"
#include "base/url.hpp"
#include "canvas/vertical_canvas.hpp"
#include "output/encoder_candidates.hpp"

#include <string_view>
#include <utility>

namespace corvane {

VerticalOutput::VerticalOutput(VerticalCanvas *canvas, OutputConfig config)
    : canvas_(canvas)
    , resilient_(config.resilient)
    , config_(std::move(config)) {}

VerticalOutput::~VerticalOutput() {
    video_reset_.Disconnect();
    const std::scoped_lock lock(mutex_);
    if (initialised_) {
        release_all();
        initialised_ = false;
        log_info("VerticalOutput destroyed");
    }
}

bool VerticalOutput::init() {
    {
        const std::scoped_lock lock(mutex_);
        if (initialised_) {
            log_warning("VerticalOutput already initialised");
            return true;
        }
        if (!canvas_ || !canvas_->initialised()) {
            log_error("VerticalOutput::init — canvas not ready");
            return false;
        }
        initialised_ = true;
    }
    video_reset_.Connect(obs_get_signal_handler(), "video_reset", on_video_reset, this);
    log_info("VerticalOutput initialised (runtime encoder fallback enabled)");
    return true;
}

bool VerticalOutput::start() {
    const std::scoped_lock lock(mutex_);
    if (!initialised_) {
        log_error("VerticalOutput::start — not initialised");
        return false;
    }
    if (active_locked()) {
        log_warning("VerticalOutput::start — already active (%s)", encoder_label());
        return true;
    }
    if (config_.url.empty()) {
        log_error("Vertical output start failed: RTMP URL is empty. Configure it in Tools → "
                  "Corvane Vertical Streaming Settings.");
        return false;
    }
    // No encoder could start, and each would be blamed.
    if (!canvas_->video()) {
        log_error("Vertical output start failed: the vertical canvas has no video. Restart OBS.");
        return false;
    }
    return start_with_fallback();
}

bool VerticalOutput::start_with_fallback() {
    for (const char *id : encoder_candidates(config_.preferred_encoder)) {
        // Every attempt starts from nothing; the first also drops what a stopped stream left.
        release_all();
        log_info("Trying vertical output encoder: %s", id);
        if (try_candidate(id)) {
            return true;
        }
    }
    log_error("No encoder could start successfully");
    return false;
}

bool VerticalOutput::try_candidate(const char *id) {
    if (!create_video_encoder(id)) {
        return false;
    }
    if (!create_audio_encoders() || !create_output()) {
        release_all();
        return false;
    }
    log_before_start(id);
    if (!obs_output_start(output_)) {
        const char *reason = obs_output_get_last_error(output_);
        log_warning("Encoder %s failed to start output: %s", id, reason ? reason : "unknown");
        release_all();
        return false;
    }
    active_encoder_ = id;
    log_info("Vertical output started with encoder: %s", id);
    return true;
}

void VerticalOutput::log_before_start(const char *id) const {
    const video_t *video = canvas_->video();
    log_info("pre-start: encoder=%s video_t=%p audio_t=%p video_enc=%p audio_enc0=%p "
             "audio_tracks=%zu output=%p",
        id, static_cast<const void *>(video), static_cast<void *>(canvas_->audio()),
        static_cast<void *>(video_encoder_.Get()), static_cast<void *>(audio_encoders_[0].Get()),
        audio_encoder_count_, static_cast<void *>(output_.Get()));
    if (video) {
        log_info("video_output: width=%u height=%u", video_output_get_width(video),
            video_output_get_height(video));
    }
    log_info("Vertical output starting: %s", shown_url().c_str());
}

void VerticalOutput::stop() {
    const std::scoped_lock lock(mutex_);
    if (!active_locked()) {
        log_info("VerticalOutput::stop — not active, nothing to do");
        return;
    }
    obs_output_stop(output_);
    log_info("Vertical output stop requested (%s)", encoder_label());
}

void VerticalOutput::stop_and_release() {
    const std::scoped_lock lock(mutex_);
    if (active_locked()) {
        obs_output_stop(output_);
        log_info("Vertical output stop requested (%s)", encoder_label());
    }
    release_all();
}

bool VerticalOutput::is_active() const {
    const std::scoped_lock lock(mutex_);
    return active_locked();
}

void VerticalOutput::update_config(const OutputConfig &config) {
    const std::scoped_lock lock(mutex_);
    config_ = config;
    log_info("VerticalOutput config updated (url: %s, preferred_encoder: %s)", shown_url().c_str(),
        config_.preferred_encoder.c_str());
}

// The video output that the encoder of a stopped stream is bound to is gone; whoever asks the
// output for its size would read it. libobs resets no video that is in use, but the audio encoders
// of a stream may still be stopping.
void VerticalOutput::on_video_reset(void *output, calldata_t *) {
    auto *self = static_cast<VerticalOutput *>(output);
    const std::scoped_lock lock(self->mutex_);
    self->release_all();
}

std::optional<ConnectionState> VerticalOutput::connection_state() const {
    using enum ConnectionState::Phase;
    const std::scoped_lock lock(mutex_);
    if (!resilient_ || !active_locked()) {
        return std::nullopt;
    }
    Calldata answer;
    proc_handler_call(obs_output_get_proc_handler(output_), "connection_state", answer.get());
    const std::string_view phase = calldata_string(answer.get(), "phase");
    return ConnectionState{
        .phase = phase == "connecting"     ? kConnecting
                 : phase == "connected"    ? kConnected
                 : phase == "reconnecting" ? kReconnecting
                 : phase == "stalled"      ? kStalled
                                           : kStopped,
        .failures = static_cast<uint32_t>(calldata_int(answer.get(), "failures")),
        .reason = calldata_string(answer.get(), "reason"),
    };
}

// The standard type shows the address as it is.
std::string VerticalOutput::shown_url() const {
    return resilient_ ? without_secrets(config_.url) : config_.url;
}

bool VerticalOutput::active_locked() const {
    return output_ && obs_output_active(output_);
}

const char *VerticalOutput::encoder_label() const {
    return active_encoder_.empty() ? "unknown" : active_encoder_.c_str();
}

} // namespace corvane
