// SPDX-License-Identifier: GPL-2.0-or-later
// Makes and releases the encoders and the output of one start attempt.
#include "base/log.hpp"
#include "canvas/vertical_canvas.hpp"
#include "mux/output_type.hpp"
#include "output/encoder_candidates.hpp"
#include "output/stream_error_box.hpp"
#include "output/unique_name.hpp"
#include "output/vertical_output.hpp"

#include <util/platform.h>

#include <string>
#include <utility>

namespace corvane {

namespace {

constexpr int kAudioBitrateKbps = 160;
constexpr int kKeyframeIntervalSeconds = 2;

// libobs takes an output out of service on a thread of its own and has no call that waits for
// it. Releasing the output meanwhile lets libobs stop it a second time, and that stop can miss
// the end of the first and wait for ever. False when the output has not ended in time.
bool wait_until_inactive(obs_output_t *output) {
    constexpr uint32_t kPollMs = 1;
    constexpr uint32_t kLimitMs = 5000;
    for (uint32_t waited = 0; obs_output_active(output); waited += kPollMs) {
        if (waited >= kLimitMs) {
            return false;
        }
        os_sleep_ms(kPollMs);
    }
    return true;
}

} // namespace

bool VerticalOutput::create_video_encoder(const char *id) {
    const OBSDataAutoRelease settings = obs_data_create();
    if (!settings) {
        return false;
    }
    obs_data_set_int(settings, "bitrate", config_.bitrate_kbps);
    obs_data_set_string(settings, "rate_control", "CBR");
    obs_data_set_int(settings, "keyint_sec", kKeyframeIntervalSeconds);
    if (is_x264(id)) {
        obs_data_set_string(settings, "preset", config_.encoder_preset.c_str());
        obs_data_set_string(settings, "profile", "high");
        obs_data_set_string(settings, "x264opts", "bframes=0:aud=1:repeat-headers=1");
        obs_data_set_string(settings, "tune", "zerolatency");
    }
    const std::string name = make_unique_name("cv_video_enc");
    OBSEncoderAutoRelease encoder = obs_video_encoder_create(id, name.c_str(), settings, nullptr);
    if (!encoder) {
        log_warning("Failed to create video encoder candidate: %s", id);
        return false;
    }
    obs_encoder_set_video(encoder, canvas_->video());
    if (canvas_->frame_rate_divisor() > 1) {
        obs_encoder_set_frame_rate_divisor(encoder, canvas_->frame_rate_divisor());
    }
    video_encoder_ = std::move(encoder);
    return true;
}

bool VerticalOutput::create_audio_encoders() {
    release_audio_encoders();
    for (size_t track = 0; track < kAudioTracks; ++track) {
        const OBSDataAutoRelease settings = obs_data_create();
        if (!settings) {
            log_error("Failed to create audio settings for track %zu", track);
            return false;
        }
        obs_data_set_int(settings, "bitrate", kAudioBitrateKbps);
        const std::string name = make_unique_name("cv_audio_enc_" + std::to_string(track));
        audio_encoders_[track] =
            obs_audio_encoder_create("ffmpeg_aac", name.c_str(), settings, track, nullptr);
        if (!audio_encoders_[track]) {
            log_error("Failed to create ffmpeg_aac encoder for track %zu", track);
            release_audio_encoders();
            return false;
        }
        obs_encoder_set_audio(audio_encoders_[track], canvas_->audio());
        ++audio_encoder_count_;
    }
    log_info("Created %zu audio encoders for output tracks 0..%zu", audio_encoder_count_,
        audio_encoder_count_ - 1);
    return true;
}

bool VerticalOutput::create_output() {
    const OBSDataAutoRelease settings = obs_data_create();
    if (!settings) {
        return false;
    }
    obs_data_set_string(settings, "server", config_.url.c_str());
    obs_data_set_string(settings, "key", config_.key.c_str());
    obs_data_set_int(settings, "fps_num", canvas_->stream_fps_num());
    obs_data_set_int(settings, "fps_den", canvas_->stream_fps_den());
    const char *type = resilient_ ? kResilientOutputId : kMuxOutputId;
    const std::string name = make_unique_name("cv_mux_output");
    OBSOutputAutoRelease output = obs_output_create(type, name.c_str(), settings, nullptr);
    if (!output) {
        log_error("obs_output_create(%s) failed", type);
        return false;
    }
    obs_output_set_video_encoder(output, video_encoder_);
    for (size_t track = 0; track < kAudioTracks; ++track) {
        if (audio_encoders_[track]) {
            obs_output_set_audio_encoder(output, audio_encoders_[track], track);
        }
    }
    output_ = std::move(output);
    signal_handler_connect(
        obs_output_get_signal_handler(output_), "stop", on_output_stop, output_.Get());
    log_info("Output created with %zu attached audio tracks", audio_encoder_count_);
    return true;
}

void VerticalOutput::release_all() {
    if (output_) {
        if (obs_output_active(output_)) {
            obs_output_stop(output_);
        }
        signal_handler_disconnect(
            obs_output_get_signal_handler(output_), "stop", on_output_stop, output_.Get());
        if (!wait_until_inactive(output_)) {
            log_error("Vertical output did not end within 5 s and is left behind: %s",
                obs_output_get_name(output_));
            // libobs would wait for the end when it destroys the output.
            canvas_->keep_video_for(std::move(output_));
        } else if (!resilient_) {
            // A stop of ours that met an output ending by itself has reset the event that libobs
            // waits for when it destroys the output; ending it once more sets the event.
            // The other type sees to that by itself, since its end is told once.
            obs_output_end_data_capture(output_);
        }
        output_ = nullptr;
    }
    release_audio_encoders();
    video_encoder_ = nullptr;
    active_encoder_.clear();
}

void VerticalOutput::release_audio_encoders() {
    for (OBSEncoderAutoRelease &encoder : audio_encoders_) {
        encoder = nullptr;
    }
    audio_encoder_count_ = 0;
}

} // namespace corvane
