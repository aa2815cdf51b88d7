// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs.h>

#include <cstdint>

namespace corvane {

// What libobs asks of an output of either type. See the two types for their threads and locks. An
// exception that leaves one of these calls ends the stream, see output_type.cpp.
class StreamOutput {
public:
    StreamOutput() = default;
    virtual ~StreamOutput() = default;
    StreamOutput(const StreamOutput &) = delete;
    StreamOutput &operator=(const StreamOutput &) = delete;

    // Takes new settings, which count from the next connection on.
    virtual void update(obs_data_t *settings) = 0;

    // False, with the output's last error set, without an address or when capture cannot begin.
    virtual bool start() = 0;

    // `forced` when libobs does not wait for a suitable moment: at a destruction, and for an
    // encoder that failed, which encoded_packet() is then told, too.
    virtual void stop(bool forced) = 0;

    // On libobs's encoder threads; null when an encoder failed.
    virtual void encoded_packet(const encoder_packet *packet) = 0;

    // Ends the stream with OBS_OUTPUT_ERROR; the output's last error is set already. Any thread,
    // with none of the calls above under way on that thread.
    virtual void fail() = 0;

    // libobs's handle of this output.
    virtual obs_output_t *handle() const = 0;
};

inline constexpr uint32_t kVideoAndAudio = OBS_OUTPUT_VIDEO | OBS_OUTPUT_AUDIO;

// Makes the encoders ready for capture to begin; false, with the output's last error set, when they
// cannot be.
bool prepare_capture(obs_output_t *output);

} // namespace corvane
