// SPDX-License-Identifier: GPL-2.0-or-later
// The two ways on which recorded packets reach an output.
#pragma once

#include "recording.hpp"

#include <obs.hpp>

#include <cstdint>
#include <vector>

namespace corvane::bench {

// Encoders whose packets are the recording's. They deliver when libobs gives them frames, or hold
// back so that a Feeder can; their headers are there in both cases.
class ReplayEncoders {
public:
    // Registers the encoder types; the recording outlives all encoders.
    static void register_types(const Recording &recording, bool deliver);

    // One for video and one for each track, bound to the output.
    ReplayEncoders(obs_output_t *output, const Shape &shape);

    obs_encoder_t *video() const { return encoders_.front(); }
    obs_encoder_t *audio(size_t track) const { return encoders_[track + 1]; }

private:
    std::vector<OBSEncoderAutoRelease> encoders_;
};

// Hands packets straight to the metered output, in the order and the spacing of a live stream but
// `speed` times as fast.
class Feeder {
public:
    Feeder(const Recording &recording, const ReplayEncoders &encoders, const Shape &shape,
        double speed)
        : recording_(recording)
        , encoders_(encoders)
        , shape_(shape)
        , speed_(speed) {}

    // The next so many seconds of the stream; returns for how long after its time a packet was
    // handed over, at most, in ms.
    double feed(double seconds);

private:
    double next_time() const; // of the stream, in seconds
    void give_next();
    void give(const Recording::Packet &recorded, encoder_packet packet);

    const Recording &recording_;
    const ReplayEncoders &encoders_;
    const Shape shape_;
    const double speed_;
    int64_t frames_ = 0; // given so far
    int64_t sounds_ = 0; // of each track
};

} // namespace corvane::bench
