// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/stream_url.hpp"

#include <obs.h>

#include <cstdint>

namespace corvane {

struct FrameRate {
    uint32_t num = 30;
    uint32_t den = 1;
};

// What an output's settings say.
struct StreamSettings {
    StreamUrl url;
    FrameRate frame_rate;

    // A frame rate that is missing or not positive leaves the one before.
    void read(obs_data_t *settings);
};

} // namespace corvane
