// SPDX-License-Identifier: GPL-2.0-or-later
// Creates and releases the encoders and the output of one start attempt, and shows its errors.
#include "output/vertical_output.hpp"

#include "base/log.hpp"
#include "canvas/vertical_canvas.hpp"
#include "mux/output_type.hpp"

#include <util/platform.h>

#include <QCoreApplication>
#include <QMessageBox>
#include <QMetaObject>
#include <QString>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace corvane {

namespace {

constexpr int kAudioBitrateKbps = 160;
constexpr int kKeyframeIntervalSeconds = 2;

// "<base>_<seconds since the Unix epoch>_<process-wide counter from 0>". Thread-safe.
std::string make_unique_name(std::string_view base) {
    static std::atomic<int64_t> counter = 0;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(now).count();
    return std::string(base) + "_" + std::to_string(seconds) + "_" + std::to_string(counter++);
}

// Whether the encoder takes a preset and x264's options.
bool is_x264(std::string_view id) {
    return id == "obs_x264" || id == "x264";
}

QString error_text(obs_output_t *output) {
    const char *last_error = obs_output_get_last_error(output);
    if (last_error && *last_error) {
        return QString::fromUtf8(last_error);
    }
    return QStringLiteral(
        "Vertical output failed to connect.\nCheck your RTMP URL and stream key.");
}

// The title has three odd characters in the place of a dash, see docs/DECISIONS.md.
void show_on_gui_thread(const QString &message) {
    const auto show = [message] {
        QMessageBox::critical(nullptr,
            QStringLiteral("Vertical Canvas \u00E2\u20AC\u201D Stream Error"), message,
            QMessageBox::Ok);
    };
    QMetaObject::invokeMethod(QCoreApplication::instance(), show, Qt::QueuedConnection);
}

// Handler of the "stop" signal; `data` is the obs_output_t. Shows the output's last error in a
// message box after an output or encoder error, ignores every other code. Runs on whichever thread
// libobs signals on and never waits for the box.
void on_output_stop(void *data, calldata_t *calldata) {
    long long code = 0;
    calldata_get_data(calldata, "code", &code, sizeof(code));
    if (code == OBS_OUTPUT_ERROR || code == OBS_OUTPUT_ENCODE_ERROR) {
        show_on_gui_thread(error_text(static_cast<obs_output_t *>(data)));
    }
}

// libobs deactivates an output on its own thread and has no call that waits for it. Releasing the
// output meanwhile makes libobs stop it again, and that stop can miss the end of the first one and
// wait forever. False on timeout.
bool wait_until_inactive(obs_output_t *output) {
    constexpr uint32_t kPollMs = 1;
    constexpr std::chrono::seconds kLimit{5};
    const auto deadline = std::chrono::steady_clock::now() + kLimit;
    while (obs_output_active(output)) {
        if (std::chrono::steady_clock::now() >= deadline) {
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
    const size_t tracks = std::clamp<size_t>(config_.audio_tracks, 1, audio_encoders_.size());
    for (size_t track = 0; track < tracks; ++track) {
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
    for (size_t track = 0; track < audio_encoders_.size(); ++track) {
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
            // Destroying the output would wait for its end.
            canvas_->keep_video_for(std::move(output_));
        } else if (!resilient_) {
            // A stop of an output that was just ending by itself has reset the event that libobs
            // waits for when it destroys the output; this sets it again. The resilient type does
            // that itself.
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
