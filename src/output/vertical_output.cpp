// SPDX-License-Identifier: GPL-2.0-or-later
// Start with encoder fallback, stop, state and settings of the vertical stream.
#include "output/vertical_output.hpp"

#include "base/log.hpp"
#include "base/obs_handles.hpp"
#include "canvas/vertical_canvas.hpp"
#include "mux/common/stream_url.hpp"

#include <array>
#include <span>
#include <string_view>
#include <utility>

namespace corvane {

namespace {

constexpr std::array kSoftware = {"obs_x264", "x264"};
constexpr std::array kAmd = {"h264_amf", "obs_x264", "x264"};
constexpr std::array kHardwareFirst = {
    "jim_nvenc", "jim_nvenc_h264", "h264_amf", "obs_qsv11", "obs_qsv11_v2", "obs_x264", "x264"};

// The video encoder ids to try in order for a preferred encoder (exact, case-sensitive). "nvenc"
// and "qsv" never try hardware, see docs/DECISIONS.md.
std::span<const char *const> encoder_candidates(std::string_view preferred) {
    if (preferred == "x264" || preferred == "nvenc" || preferred == "qsv") {
        return kSoftware;
    }
    if (preferred == "amf") {
        return kAmd;
    }
    return kHardwareFirst;
}

} // namespace

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
    if (output_active()) {
        log_warning("VerticalOutput::start — already active (%s)", encoder_label());
        return true;
    }
    if (config_.url.empty()) {
        log_error("Vertical output start failed: RTMP URL is empty. Configure it in Tools → "
                  "Corvane Vertical Streaming Settings.");
        return false;
    }
    // Without video every encoder would fail, and its log line would blame the encoder.
    if (!canvas_->video()) {
        log_error("Vertical output start failed: the vertical canvas has no video. Restart OBS.");
        return false;
    }
    return start_with_fallback();
}

bool VerticalOutput::start_with_fallback() {
    for (const char *id : encoder_candidates(config_.preferred_encoder)) {
        // The first call also releases what a stopped stream has left.
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
    destination_ = shown_server(config_.url, config_.key);
    started_at_ = std::chrono::steady_clock::now();
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
    if (!output_active()) {
        log_info("VerticalOutput::stop — not active, nothing to do");
        return;
    }
    stop_output();
}

void VerticalOutput::stop_output() {
    obs_output_stop(output_);
    log_info("Vertical output stop requested (%s)", encoder_label());
}

void VerticalOutput::stop_and_release() {
    const std::scoped_lock lock(mutex_);
    if (output_active()) {
        stop_output();
    }
    release_all();
}

bool VerticalOutput::is_active() const {
    const std::scoped_lock lock(mutex_);
    return output_active();
}

void VerticalOutput::update_config(const OutputConfig &config) {
    const std::scoped_lock lock(mutex_);
    config_ = config;
    log_info("VerticalOutput config updated (url: %s, preferred_encoder: %s)", shown_url().c_str(),
        config_.preferred_encoder.c_str());
}

// After a stop the video encoder still points to the video output that the reset has freed, and
// libobs reads that when asked for the output's size. libobs refuses to reset video in use, so no
// stream is running, but its audio encoders may still be stopping: release_all() waits for them.
void VerticalOutput::on_video_reset(void *output, calldata_t *) {
    auto *self = static_cast<VerticalOutput *>(output);
    const std::scoped_lock lock(self->mutex_);
    self->release_all();
}

// The stream may end at any moment: read the connection first.
VerticalOutput::State VerticalOutput::state() const {
    const std::scoped_lock lock(mutex_);
    std::optional<ConnectionState> connection;
    if (resilient_ && output_) {
        connection = connection_state();
    }
    if (!output_active()) {
        State ended;
        if (const char *error = output_ ? obs_output_get_last_error(output_) : nullptr) {
            ended.last_error = error;
        }
        return ended;
    }
    const auto on_air = std::chrono::steady_clock::now() - started_at_;
    return {.active = true,
        .last_error = {},
        .encoder = active_encoder_,
        .destination = destination_,
        .on_air = std::chrono::floor<std::chrono::seconds>(on_air),
        .connection = std::move(connection),
        .total_bytes = obs_output_get_total_bytes(output_),
        .dropped_frames = obs_output_get_frames_dropped(output_),
        .congestion = obs_output_get_congestion(output_)};
}

ConnectionState VerticalOutput::connection_state() const {
    Calldata answer;
    proc_handler_call(obs_output_get_proc_handler(output_), "connection_state", answer.get());
    return ConnectionState::read_from(answer.get());
}

// The standard type logs the URL unchanged.
std::string VerticalOutput::shown_url() const {
    return resilient_ ? shown_server(config_.url, config_.key) : config_.url;
}

bool VerticalOutput::output_active() const {
    return output_ && obs_output_active(output_);
}

const char *VerticalOutput::encoder_label() const {
    return active_encoder_.empty() ? "unknown" : active_encoder_.c_str();
}

} // namespace corvane
