// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "base/obs_handles.hpp"
#include "output/output_config.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace corvane {

class VerticalCanvas;

// What the output type that keeps the connection says of it.
struct ConnectionState {
    enum class Phase { kStopped, kConnecting, kConnected, kReconnecting, kStalled } phase;
    uint32_t failures;  // in a row
    std::string reason; // of the last; empty without one
};

// The vertical stream: one video encoder on the canvas, six AAC encoders on the host's audio
// (one per host track) and the output that sends them.
//
// Public operations lock for their whole run, libobs calls included; they may be called from
// any thread but the one that emits the output's signals. Encoders and output are made anew
// by every start and kept after a stop until the next start, a reset of the host's video or the
// destruction.
class VerticalOutput {
public:
    static constexpr size_t kAudioTracks = 6;

    // The canvas is not owned and must outlive this object.
    VerticalOutput(VerticalCanvas *canvas, OutputConfig config);
    ~VerticalOutput();
    VerticalOutput(const VerticalOutput &) = delete;
    VerticalOutput &operator=(const VerticalOutput &) = delete;

    // False when the canvas is missing or not initialised. Creates no libobs object.
    bool init();

    // Tries the encoder candidates in their fixed order until one starts the output.
    // True when the output runs, also when it already did.
    bool start();

    // Asks a running output to stop; returns before it has.
    void stop();

    bool is_active() const;

    // Whether it keeps its connection, see OutputConfig.
    bool resilient() const { return resilient_; }

    // Stops and waits until the stream has let go of the host's video and audio.
    void stop_and_release();

    // How the running stream does; nothing when none runs, or with the standard output type.
    std::optional<ConnectionState> connection_state() const;

    // Takes new settings for the next start; a running stream keeps its own.
    void update_config(const OutputConfig &config);

private:
    static void on_video_reset(void *output, calldata_t *);

    // All with mutex_ held.
    bool active_locked() const;
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
    std::array<OBSEncoderAutoRelease, kAudioTracks> audio_encoders_;
    size_t audio_encoder_count_ = 0;
    OBSOutputAutoRelease output_;
    std::string active_encoder_;
    bool initialised_ = false;

    // Connected and disconnected without mutex_, which on_video_reset() takes.
    OBSSignal video_reset_;
};

} // namespace corvane
