// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs.h>

#include <cstdint>

namespace corvane {

// Interface of both output types, called by libobs through output_type.cpp. Each type's header
// describes its threads and locks. An exception that leaves one of these functions ends the stream.
class StreamOutput {
public:
    // libobs owns the handle, which outlives this object.
    explicit StreamOutput(obs_output_t *output)
        : output_(output) {}
    virtual ~StreamOutput() = default;
    StreamOutput(const StreamOutput &) = delete;
    StreamOutput &operator=(const StreamOutput &) = delete;

    // New settings take effect with the next connection.
    virtual void update(obs_data_t *settings) = 0;

    // False, with the output's last error set, without an address or when capture cannot begin.
    virtual bool start() = 0;

    // `forced`: libobs wants no further packets sent. It forces a stop when it destroys the output
    // and when an encoder has failed; it also reports that failure to encoded_packet().
    virtual void stop(bool forced) = 0;

    // Called on libobs's encoder threads, one at a time; null when an encoder has failed.
    virtual void encoded_packet(const encoder_packet *packet) = 0;

    // Ends the stream with OBS_OUTPUT_ERROR; the output's last error is already set. From any
    // thread, but not from within the functions above.
    virtual void end_with_error() = 0;

    struct Statistics {
        uint64_t total_bytes = 0;
        int dropped_frames = 0;
        float congestion = 0; // 0 to 1
        int connect_time_ms = 0;
    };
    // Of the current or last stream. Thread-safe.
    virtual Statistics statistics() const { return {}; }

    obs_output_t *handle() const { return output_; }

protected:
    static constexpr uint32_t kVideoAndAudio = OBS_OUTPUT_VIDEO | OBS_OUTPUT_AUDIO;

    // Prepares the encoders for obs_output_begin_data_capture(); false, with the output's last
    // error set, when that fails.
    bool prepare_capture() const {
        if (!obs_output_can_begin_data_capture(output_, kVideoAndAudio)) {
            obs_output_set_last_error(output_, "obs_output_can_begin_data_capture failed");
            return false;
        }
        if (!obs_output_initialize_encoders(output_, kVideoAndAudio)) {
            obs_output_set_last_error(output_, "obs_output_initialize_encoders failed");
            return false;
        }
        return true;
    }

    obs_output_t *const output_;
};

} // namespace corvane
