// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs.hpp>

#include <cstddef>
#include <vector>

namespace corvane::bench {

struct Stream {
    size_t tracks;
    int fps;
    int megabits; // of video, a second
};

// Gives the output encoders that cost next to nothing, whose packets have the right sizes and blank
// payloads: one for video, one for each track.
std::vector<OBSEncoderAutoRelease> add_replay_encoders(obs_output_t *output, const Stream &stream);

} // namespace corvane::bench
