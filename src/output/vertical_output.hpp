// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "base/obs_handles.hpp"
#include "mux/common/connection_state.hpp"
#include "output/output_config.hpp"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace corvane {

class VerticalCanvas;

// The vertical stream: one video encoder on the canvas, up to six AAC encoders on the host's audio
// (one per host track) and the output that sends them.
//
// Public operations lock for their whole run, libobs calls included; call them from any thread but
// the one that emits the output's signals. Every start creates new encoders and a new output, which
// are kept after a stop until the next start, a reset of the host's video or the destruction.
class VerticalOutput {
public:
    // The canvas is not owned and must outlive this object.
    VerticalOutput(VerticalCanvas *canvas, OutputConfig config);
    ~VerticalOutput();
    VerticalOutput(const VerticalOutput &) = delete;
    VerticalOutput &operator=(const VerticalOutput &) = delete;

    // False if the canvas is missing or not initialised. Creates no libobs object.
    bool init();

    // Tries the encoder candidates in order until one starts the output. True if the output runs,
    // even if it already did.
    bool start();

    // Asks a running output to stop; does not wait for it.
    void stop();

    bool is_active() const;

    bool resilient() const { return resilient_; }

    // Stops and waits until the stream has released the host's video and audio.
    void stop_and_release();

    struct State {
        bool active = false;
        std::string last_error;  // of a stream that has ended; all else only while active
        std::string encoder;     // its id
        std::string destination; // without secrets
        std::chrono::seconds on_air{0};
        // Of the resilient type only.
        std::optional<ConnectionState> connection;
        uint64_t total_bytes = 0;
        int dropped_frames = 0;
        float congestion = 0; // 0 to 1
    };
    State state() const;

    // Takes new settings for the next start; a running stream keeps its own.
    void update_config(const OutputConfig &config);

private:
    static void on_video_reset(void *output, calldata_t *);

    // Called with mutex_ held.
    bool output_active() const;
    ConnectionState connection_state() const;
    void stop_output();
    bool start_with_fallback();
    bool try_candidate(const char *id);
    bool create_video_encoder(const char *id);
    bool create_audio_encoders();
    bool create_output();
    void release_all();
    void release_audio_encoders();
    void log_before_start(const char *id) const;
    const char *encoder_label() const;
    std::string shown_url() const;

    VerticalCanvas *const canvas_;
    const bool resilient_;

    mutable std::mutex mutex_; // guards everything below
    OutputConfig config_;
    OBSEncoderAutoRelease video_encoder_;
    std::array<OBSEncoderAutoRelease, OutputConfig::kMaxAudioTracks> audio_encoders_;
    size_t audio_encoder_count_ = 0;
    OBSOutputAutoRelease output_;
    std::string active_encoder_;
    std::string destination_; // of the last start
    std::chrono::steady_clock::time_point started_at_;
    bool initialised_ = false;

    // Connected and disconnected without mutex_, which on_video_reset() takes.
    OBSSignal video_reset_;
};

} // namespace corvane
